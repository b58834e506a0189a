// Memory from the C runtime, bare or behind a policy header: what plain mode serves its callers
// from, and what heaps and large blocks are made of.
#ifndef KIV_MEMHEAP_PLAIN_H
#define KIV_MEMHEAP_PLAIN_H

#include <cstdint>

namespace kiv {

// With the memory-manager switch off the runtime's own block; with it on, a block of the thread's
// allocator cache or one behind a policy header. Null when there is no memory, or when the header
// and the rounding make the size wrap.
void* PlainAllocate(uint64_t sizeBytes, uint8_t policy);

// The same for a block that PlainAllocate made, or that the runtime made; null asks for a new one
// of the full policy. On failure null, and the block is still whole.
void* PlainReallocate(void* block, uint64_t newSizeBytes);

void PlainFree(void* block);

// ---- Once a fatal exception has been recorded ----

// Plain mode then serves from the exception stack, and the thread that raised the exception alone;
// any other that asks is suspended. The front asks first whether that is so.
bool FatalExceptionOccurred();
void* FatalAllocate(uint64_t sizeBytes);
void* FatalReallocate(void* block, uint64_t newSizeBytes);

// Releases nothing: 0, or KIV_ST_ARGUMENT when the block does not lie in the stack.
uint32_t FatalFree(void* block);

}  // namespace kiv

#endif
