// The memory manager as std::pmr::memory_resource: thread heaps, and short heaps.
//
//   kivsdu::ThreadHeapResource heap(&context);
//   std::pmr::vector<int> cells(&heap);
//
// Blocks of the memory manager are aligned to 8 bytes. A block that needs more is allocated with
// room to align it. A resource throws std::bad_alloc if there is no memory.
#ifndef KIVSDU_CPP_MEMORY_HPP
#define KIVSDU_CPP_MEMORY_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory_resource>
#include <new>

#include "../manager.h"
#include "../shortheap.h"
#include "error.hpp"

namespace kivsdu {
namespace detail {

inline constexpr std::size_t kBlockAlignment = 8;
inline constexpr char kSource[] = "kivsdu/cpp/memory";
inline constexpr uint32_t kLineAllocate = 1;
inline constexpr uint32_t kLineFree = 2;

// Bytes to allocate for a block of this alignment, with room to move it up.
inline std::size_t BytesToAllocate(std::size_t bytes, std::size_t alignment) {
  if (alignment <= kBlockAlignment) return bytes == 0 ? 1 : bytes;
  if (bytes > SIZE_MAX - alignment) throw std::bad_alloc();
  return bytes + alignment;
}

// Moves an allocation up to the alignment, by at least 8 bytes, and stores its address in front.
inline void* Align(void* allocation, std::size_t alignment) noexcept {
  if (alignment <= kBlockAlignment) return allocation;
  const auto from = reinterpret_cast<std::uintptr_t>(allocation);
  const std::uintptr_t aligned = (from + alignment) & ~(std::uintptr_t{alignment} - 1);
  std::memcpy(reinterpret_cast<void*>(aligned - sizeof(void*)), &allocation, sizeof(void*));
  return reinterpret_cast<void*>(aligned);
}

// The allocation that Align moved up.
inline void* AllocationOf(void* block, std::size_t alignment) noexcept {
  if (alignment <= kBlockAlignment) return block;
  void* allocation = nullptr;
  std::memcpy(&allocation, static_cast<char*>(block) - sizeof(void*), sizeof(void*));
  return allocation;
}

}  // namespace detail

// Blocks of adMalloc. Any thread may use the resource and free its blocks.
class ThreadHeapResource final : public std::pmr::memory_resource {
 public:
  //   owner  chooses the heap, as the owner of adMalloc; may be null; never dereferenced
  explicit ThreadHeapResource(void* owner = nullptr) noexcept : owner_(owner) {}

 private:
  void* do_allocate(std::size_t bytes, std::size_t alignment) override {
    void* block = nullptr;
    if (adMalloc(owner_, detail::BytesToAllocate(bytes, alignment), &block, detail::kSource,
                 detail::kLineAllocate) != KIV_ST_OK) {
      throw std::bad_alloc();
    }
    return detail::Align(block, alignment);
  }
  void do_deallocate(void* block, std::size_t, std::size_t alignment) override {
    adFree(detail::AllocationOf(block, alignment), detail::kSource, detail::kLineFree);
  }
  bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }

  void* owner_;
};

// A unit of work with short heaps of its own, which are released when it ends. One thread uses it.
class ShortHeap {
 public:
  ShortHeap() noexcept { adMemShortHeapInit(&owner_); }
  ShortHeap(const ShortHeap&) = delete;
  ShortHeap& operator=(const ShortHeap&) = delete;
  ~ShortHeap() { adMemShortHeapTerm(&owner_); }

  // False if the memory manager runs without short heaps, or has no memory for one.
  bool IsAvailable() const noexcept { return adMemShortCheckStatus(&owner_) != 0; }

  AdShortHeapOwner* Get() noexcept { return &owner_; }

 private:
  AdShortHeapOwner owner_ = {};
};

// Blocks of a short heap. If there are no short heaps, blocks come from the other resource. The
// resource and its blocks end before the short heap.
class ShortHeapResource final : public std::pmr::memory_resource {
 public:
  //   otherwise  serves a short heap that is not available; must not be null
  explicit ShortHeapResource(ShortHeap& heap, std::pmr::memory_resource* otherwise =
                                                  std::pmr::get_default_resource()) noexcept
      : owner_(heap.IsAvailable() ? heap.Get() : nullptr), otherwise_(otherwise) {}

 private:
  void* do_allocate(std::size_t bytes, std::size_t alignment) override {
    if (owner_ == nullptr) return otherwise_->allocate(bytes, alignment);
    const std::size_t needed = detail::BytesToAllocate(bytes, alignment);
    void* block = nullptr;
    if (needed > INT32_MAX ||
        adMemShortHeapMalloc(owner_, static_cast<int32_t>(needed), &block, detail::kSource,
                             detail::kLineAllocate) != KIV_ST_OK) {
      throw std::bad_alloc();
    }
    return detail::Align(block, alignment);
  }
  void do_deallocate(void* block, std::size_t bytes, std::size_t alignment) override {
    if (owner_ == nullptr) return otherwise_->deallocate(block, bytes, alignment);
    adFree(detail::AllocationOf(block, alignment), detail::kSource, detail::kLineFree);
  }
  bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }

  AdShortHeapOwner* owner_;
  std::pmr::memory_resource* otherwise_;
};

}  // namespace kivsdu

#endif
