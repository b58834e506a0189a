// Watches how the library uses the C runtime's heap, and lets an allocation fail.
#ifndef KIV_TESTS_HEAP_WATCH_H
#define KIV_TESTS_HEAP_WATCH_H

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "support/import_patch.h"
#include "support/last_error.h"

namespace kiv::test {

// Only one object at a time, for the calls of one thread.
class HeapWatch {
 public:
  static constexpr size_t kNever = static_cast<size_t>(-1);

  // Allocation number `failing`, counted from 0, fails with last error `error`. Every free sets the
  // last error to `freeError`.
  explicit HeapWatch(size_t failing = kNever, uint32_t error = 0, uint32_t freeError = 0)
      : malloc_("malloc", reinterpret_cast<void*>(&HeapWatch::Allocate)),
        free_("free", reinterpret_cast<void*>(&HeapWatch::Free)) {
    state_ = {failing, error, freeError, {}, {}, malloc_.original(), free_.original()};
  }
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;

  // Sizes of all allocations, including the failed ones.
  const std::vector<size_t>& sizes() const { return state_.sizes; }

  // Count of blocks allocated and not freed.
  size_t live() const { return state_.live.size(); }

  bool IsLive(const void* block) const { return state_.live.count(block) == 1; }

 private:
  struct State {
    size_t failing;
    uint32_t error;
    uint32_t freeError;
    std::vector<size_t> sizes;
    std::set<const void*> live;
    void* allocate;
    void* free;
  };

  static void* Allocate(size_t size) {
    state_.sizes.push_back(size);
    if (state_.sizes.size() - 1 == state_.failing) {
      SetErrors(static_cast<int>(state_.error), state_.error);
      return nullptr;
    }
    void* block = reinterpret_cast<void* (*)(size_t)>(state_.allocate)(size);
    state_.live.insert(block);
    return block;
  }

  static void Free(void* block) {
    EXPECT_EQ(state_.live.erase(block), 1u) << "freed and not allocated";
    reinterpret_cast<void (*)(void*)>(state_.free)(block);
    SetErrors(static_cast<int>(state_.freeError), state_.freeError);
  }

  static inline State state_;

  ImportPatch malloc_;
  ImportPatch free_;
};

}  // namespace kiv::test

#endif
