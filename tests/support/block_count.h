// Counts the blocks that the library takes from the memory manager and gives back, while it
// lives. One at a time, and the library used by one thread.
//
// On Windows the DLL's calls of the runtime's malloc and free are patched. Elsewhere the linker
// sends the library's calls of the manager here: link the program with kiv_block_count.
#ifndef KIV_TESTS_BLOCK_COUNT_H
#define KIV_TESTS_BLOCK_COUNT_H

#include <cstdint>
#include <memory>

namespace kiv::test {

class BlockCount {
 public:
  BlockCount();
  ~BlockCount();
  BlockCount(const BlockCount&) = delete;
  BlockCount& operator=(const BlockCount&) = delete;

  uint64_t allocated() const;
  uint64_t freed() const;

 private:
  struct Patches;
  std::unique_ptr<Patches> patches_;
};

}  // namespace kiv::test

#endif
