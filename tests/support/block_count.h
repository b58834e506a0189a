// Counts the blocks that the library takes from the memory manager and gives back during the
// object's lifetime. Only one object at a time; only one thread may use the library.
//
// On Windows the object patches the DLL's calls of malloc and free. Elsewhere the linker redirects
// the library's calls of the manager to here: link the program with kiv_block_count.
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
