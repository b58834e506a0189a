// The C runtime's allocator as the library uses it: what it asks for and gives back, and answers
// that a test makes up.
//
// Link the program with kiv_runtime_hook, which says whose calls are seen.
#ifndef KIV_TESTS_RUNTIME_WATCH_H
#define KIV_TESTS_RUNTIME_WATCH_H

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace kiv::test {

// One at a time, for the calls of one thread. Between a call that is to be watched and the look at
// what it did, the test allocates nothing.
class RuntimeWatch {
 public:
  struct Resized {
    const void* block;
    size_t sizeBytes;

    bool operator==(const Resized&) const = default;
  };

  RuntimeWatch();
  ~RuntimeWatch();
  RuntimeWatch(const RuntimeWatch&) = delete;
  RuntimeWatch& operator=(const RuntimeWatch&) = delete;

  // What was asked for since the start or since Forget, oldest first.
  std::vector<size_t> sizes() const;
  std::vector<Resized> resized() const;
  std::vector<const void*> freed() const;

  void Forget();

  // The allocations and reallocations after so many more find no memory.
  void FailAfter(size_t count);
  void FailNoMore();

  // These bytes are not the runtime's: what is freed there is noted and goes no further, and what
  // is to be resized finds no memory.
  void Guard(const void* place, size_t sizeBytes);

  // Fresh blocks are filled with this byte.
  void FillWith(unsigned char byte);

  // Is shown every block just before it is resized or freed.
  void Show(std::function<void(const void* block)> look);

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace kiv::test

#endif
