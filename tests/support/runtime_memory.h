// Counts the blocks that the library holds from the C runtime, and lets one allocation fail.
//
// During the object's lifetime the test itself only calls the library. Link the program with
// kiv_runtime_hook; runtime_hook.h says which calls are seen.
#ifndef KIV_TESTS_RUNTIME_MEMORY_H
#define KIV_TESTS_RUNTIME_MEMORY_H

#include <cstdint>
#include <memory>

namespace kiv::test {

// Only one object at a time, for the calls of one thread.
class RuntimeMemory {
 public:
  static constexpr uint64_t kNever = 0;

  // Allocation number `failing`, counted from 1, fails. Reallocations count too.
  explicit RuntimeMemory(uint64_t failing = kNever);
  ~RuntimeMemory();
  RuntimeMemory(const RuntimeMemory&) = delete;
  RuntimeMemory& operator=(const RuntimeMemory&) = delete;

  // Whether the failing allocation was reached.
  bool failed() const;

  uint64_t allocations() const;

  // Blocks allocated less blocks freed since the start. Freeing an older block counts too.
  int64_t live() const;

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace kiv::test

#endif
