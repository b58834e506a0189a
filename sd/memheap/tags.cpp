// The accessors of block lists, for tools that are shared with other platforms. Allocations are not
// tracked, so that the list is always empty.
#include "kivsdu/memtags.h"

namespace {

constexpr char kNullPointer[] = "Null Pointer";

}  // namespace

const AdAllocBlock* adMemMgrGetAllocBlkHd() { return nullptr; }

const void* adMemMgrGetMemInfoHd() { return nullptr; }

// Compatibility: returns the next place in the array, whether or not a record lies there.
const AdAllocBlock* adMemMgrGetAllocBlkNxt(const AdAllocBlock* block) {
  return block == nullptr ? nullptr : block + 1;
}

const char* adMemMgrGetAllocBlkFN(const AdAllocBlock* block) {
  return block == nullptr ? kNullPointer : block->file;
}

uint32_t adMemMgrGetAllocBlkLn(const AdAllocBlock* block) {
  return block == nullptr ? 0 : block->line;
}

uint32_t adMemMgrGetAllocBlkSz(const AdAllocBlock* block) {
  return block == nullptr ? 0 : block->sizeBytes;
}

const void* adMemMgrGetAllocBlkMI(const AdAllocBlock* block) {
  return block == nullptr ? nullptr : block->memoryInfo;
}
