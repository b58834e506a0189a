// Records the library's calls of the C runtime's allocator, and changes their results on demand.
//
// Link the program with kiv_runtime_hook; runtime_hook.h says which calls are seen.
#ifndef KIV_TESTS_RUNTIME_WATCH_H
#define KIV_TESTS_RUNTIME_WATCH_H

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace kiv::test {

// Only one object at a time, for the calls of one thread. The test itself must not allocate between
// a watched call and reading the records.
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

  // The calls since the start or since Forget, oldest first.
  std::vector<size_t> sizes() const;
  std::vector<Resized> resized() const;
  std::vector<const void*> freed() const;

  void Forget();

  // After `count` more allocations and reallocations, all further ones fail.
  void FailAfter(size_t count);
  void FailNoMore();

  // Marks bytes that do not belong to the runtime. Freeing a block there is only recorded, and
  // resizing one fails.
  void Guard(const void* place, size_t sizeBytes);

  // Fresh blocks are filled with this byte.
  void FillWith(unsigned char byte);

  // Calls `look` with every block just before it is resized or freed.
  void Show(std::function<void(const void* block)> look);

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace kiv::test

#endif
