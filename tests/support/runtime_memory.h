// The C runtime's memory as the library uses it: how much it holds, and an allocation that fails.
//
// On Windows the DLL's calls of the runtime are patched; elsewhere the linker sends those of the
// whole program here, which are looked at only while a RuntimeMemory lives: the test itself does
// nothing meanwhile but call the library. Link the program with kiv_runtime_memory.
#ifndef KIV_TESTS_RUNTIME_MEMORY_H
#define KIV_TESTS_RUNTIME_MEMORY_H

#include <cstdint>
#include <memory>

namespace kiv::test {

// One at a time, for the calls of one thread.
class RuntimeMemory {
 public:
  static constexpr uint64_t kNever = 0;

  // The allocation of this number fails, counted from 1; reallocations count as well.
  explicit RuntimeMemory(uint64_t failing = kNever);
  ~RuntimeMemory();
  RuntimeMemory(const RuntimeMemory&) = delete;
  RuntimeMemory& operator=(const RuntimeMemory&) = delete;

  // Whether there was an allocation of that number.
  bool failed() const;

  uint64_t allocations() const;

  // Blocks taken and not given back, less those that were given back and not taken before.
  int64_t live() const;

 private:
  struct Patches;
  std::unique_ptr<Patches> patches_;
};

}  // namespace kiv::test

#endif
