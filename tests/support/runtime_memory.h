// The C runtime's memory as the library uses it: how much it holds, and an allocation that fails.
//
// The test itself does nothing meanwhile but call the library. Link the program with
// kiv_runtime_hook, which says whose calls are seen.
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
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace kiv::test

#endif
