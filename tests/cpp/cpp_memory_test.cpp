// Memory resources over thread heaps and short heaps.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory_resource>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.hpp"
#include "support/manager.h"

namespace {

using kiv::test::kNoFile;
using kiv::test::kSmall;
using kiv::test::Restart;
using kiv::test::TotalsNow;
using kivsdu::ShortHeap;
using kivsdu::ShortHeapResource;
using kivsdu::ThreadHeapResource;

constexpr size_t kLargeBytes = 1024 * 1024;  // more than fits into a heap

bool IsAligned(const void* block, size_t alignment) {
  return reinterpret_cast<uintptr_t>(block) % alignment == 0;
}

// Blocks of many sizes and alignments: aligned, apart from each other, and writable.
void UseBlocks(std::pmr::memory_resource* resource) {
  struct Block {
    unsigned char* bytes;
    size_t size;
    size_t alignment;
  };
  std::vector<Block> blocks;
  for (size_t alignment = 1; alignment <= 4096; alignment *= 2) {
    for (const size_t size : {size_t{1}, size_t{8}, size_t{100}, size_t{5000}}) {
      auto* bytes = static_cast<unsigned char*>(resource->allocate(size, alignment));
      EXPECT_TRUE(IsAligned(bytes, alignment)) << alignment;
      std::memset(bytes, static_cast<int>(blocks.size()), size);
      blocks.push_back({bytes, size, alignment});
    }
  }
  for (size_t i = 0; i < blocks.size(); i++) {
    const Block& block = blocks[i];
    EXPECT_EQ(block.bytes[0], i);
    EXPECT_EQ(block.bytes[block.size - 1], i);
    resource->deallocate(block.bytes, block.size, block.alignment);
  }
}

TEST(ThreadHeapResource, ServesBlocksOfTheThreadHeaps) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  const auto before = TotalsNow();
  ThreadHeapResource resource;
  UseBlocks(&resource);
  for (const size_t alignment : {size_t{8}, size_t{64}}) {
    void* large = resource.allocate(kLargeBytes, alignment);
    EXPECT_GT(TotalsNow().used(), before.used() + kLargeBytes);
    resource.deallocate(large, kLargeBytes, alignment);
    EXPECT_EQ(TotalsNow().used(), before.used());
  }
  // A block without a special alignment is a block of adMalloc.
  EXPECT_EQ(adFree(resource.allocate(kLargeBytes, 8), "tests", 1), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().used(), before.used());
}

TEST(ThreadHeapResource, ServesBlocksInPlainMode) {
  ASSERT_EQ(Restart(kNoFile), KIV_ST_OK);
  ThreadHeapResource resource;
  UseBlocks(&resource);
}

TEST(ThreadHeapResource, ServesAnEmptyBlock) {
  ThreadHeapResource resource;
  for (const size_t alignment : {size_t{1}, size_t{64}}) {
    void* first = resource.allocate(0, alignment);
    void* second = resource.allocate(0, alignment);
    EXPECT_NE(first, second);
    resource.deallocate(first, 0, alignment);
    resource.deallocate(second, 0, alignment);
  }
}

TEST(ThreadHeapResource, ServesContainers) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  const auto before = TotalsNow();
  int owner = 0;
  {
    ThreadHeapResource resource(&owner);
    std::pmr::map<std::pmr::string, std::pmr::vector<int>> cells(&resource);
    for (int i = 0; i < 1000; i++) {
      cells[std::pmr::string("a key beyond the small strings: ") + std::to_string(i).c_str()]
          .push_back(i);
    }
    EXPECT_EQ(cells.size(), 1000u);
    EXPECT_EQ(cells.begin()->second.get_allocator().resource(), &resource);
    cells.begin()->second.resize(kLargeBytes);
    EXPECT_GT(TotalsNow().used(), before.used() + kLargeBytes);
  }
  EXPECT_EQ(TotalsNow().used(), before.used());
}

TEST(ThreadHeapResource, ThrowsBadAllocWithoutMemory) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 16M\n"), KIV_ST_OK);
  ThreadHeapResource resource;
  EXPECT_THROW(static_cast<void>(resource.allocate(64 * 1024 * 1024, 8)), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(resource.allocate(SIZE_MAX - 8, 64)), std::bad_alloc);
  EXPECT_FALSE(resource.is_equal(*std::pmr::new_delete_resource()));
  EXPECT_TRUE(resource.is_equal(resource));
}

TEST(ShortHeapResource, ServesBlocksThatEndWithTheHeap) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  {
    ShortHeap heap;
    ASSERT_TRUE(heap.IsAvailable());
    ShortHeapResource resource(heap, std::pmr::null_memory_resource());
    UseBlocks(&resource);
    static_cast<void>(resource.allocate(1000, 64));         // never freed
    static_cast<void>(resource.allocate(1024 * 1024, 16));  // a large block, never freed
    EXPECT_THROW(static_cast<void>(resource.allocate(size_t{INT32_MAX} + 1, 8)), std::bad_alloc);
    EXPECT_THROW(static_cast<void>(resource.allocate(INT32_MAX - 8, 16)), std::bad_alloc);
    EXPECT_GT(TotalsNow().outside, kiv::test::kShortHeapBytes);
  }
  EXPECT_EQ(TotalsNow().outside, kiv::test::kShortHeapBytes);  // the pool keeps the empty heap
}

TEST(ShortHeapResource, PassesOnWithoutShortHeaps) {
  ASSERT_EQ(Restart(std::string(kSmall) + "shortmemoryoff\n"), KIV_ST_OK);
  ShortHeap heap;
  EXPECT_FALSE(heap.IsAvailable());
  ShortHeapResource usual(heap);
  UseBlocks(&usual);
  ShortHeapResource refused(heap, std::pmr::null_memory_resource());
  EXPECT_THROW(static_cast<void>(refused.allocate(8, 8)), std::bad_alloc);
}

}  // namespace
