// A memory stack in the simplest form: two lists of blocks. The tests compare the library's stacks
// with it.
//
// The model learns the address of a new block from the stack, and expects that address from then on.
#ifndef KIV_TESTS_MEMORY_STACK_MODEL_H
#define KIV_TESTS_MEMORY_STACK_MODEL_H

#include <cstdint>
#include <vector>

#include "sdcommon/memory_stack.h"

namespace kiv::test {

class MemoryStackModel {
 public:
  struct Block {
    uint64_t sizeBytes;
    uintptr_t address;  // 0 until the stack has returned it
  };

  struct Placement {
    uint32_t status;
    uint64_t offset;  // in the top block
  };

  MemoryStackModel(uint64_t pageBytes, uint64_t alignment, uint64_t initialBytes);

  // The operations of the stack. They return its statuses.
  Placement Push(uint64_t sizeBytes);
  uint32_t Pop(uintptr_t address);
  void Reset();

  // Compares the stack's chains with the model's lists, link by link.
  bool Is(const KivSdMemStack& stack);

  const std::vector<Block>& used() const { return used_; }
  bool empty() const { return used_.empty(); }
  uint64_t offset() const { return offset_; }

  uint64_t allocated = 0;  // blocks
  uint64_t freed = 0;

 private:
  uint64_t Aligned(uint64_t offset) const;
  uint64_t BlockSize(uint64_t bytes) const;
  Block Fresh(uint64_t sizeBytes);
  bool Holds(const Block& block, uintptr_t address) const;

  uint64_t page_;
  uint64_t align_;
  uint64_t header_;
  uint64_t default_;
  uint64_t offset_ = 0;
  std::vector<Block> used_;  // the top block last
  std::vector<Block> free_;  // the largest first
};

}  // namespace kiv::test

#endif
