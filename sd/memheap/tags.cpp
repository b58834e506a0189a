// Block lists, tags and mappings: what tools and other platforms ask of the memory manager. Blocks
// are not tracked by the place that asked for them, so there is never a list to read.
#include "kivsdu/memtags.h"

namespace {

constexpr char kNullPointer[] = "Null Pointer";

}  // namespace

const AdAllocBlock* adMemMgrGetAllocBlkHd() { return nullptr; }

const void* adMemMgrGetMemInfoHd() { return nullptr; }

// Kept: the record behind this one in memory, whether or not there is one. The list is an array.
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
