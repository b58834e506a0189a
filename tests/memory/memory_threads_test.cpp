// Blocks of the memory front that pass between threads.
//
// All threads share a table of blocks. Each thread exchanges a block that it filled with the one at
// a random place, and checks, resizes or frees the block that it gets, whichever thread allocated
// it.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <random>

#include "kivsdu/kivsdu.h"
#include "support/threads.h"

namespace {

using kiv::test::OnThreads;

constexpr uint32_t kThreads = 8;
constexpr uint32_t kRounds = 20000;
constexpr size_t kPlaces = 64;
constexpr char kFile[] = "memory_threads_test";

// Every block of this test starts with this record, which determines the bytes after it.
struct Head {
  uint32_t sizeBytes;
  uint32_t seed;
};

unsigned char ByteAt(const Head& head, uint32_t i) {
  return static_cast<unsigned char>(head.seed + i * 31);
}

void Fill(void* block, Head head) {
  auto* bytes = static_cast<unsigned char*>(block);
  *static_cast<Head*>(block) = head;
  for (uint32_t i = sizeof(Head); i < head.sizeBytes; ++i) bytes[i] = ByteAt(head, i);
}

// Whether this number of bytes at the start still have their content.
bool IsWhole(const void* block, uint32_t sizeBytes) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  const Head head = *static_cast<const Head*>(block);
  for (uint32_t i = sizeof(Head); i < sizeBytes; ++i) {
    if (bytes[i] != ByteAt(head, i)) return false;
  }
  return true;
}

std::array<std::atomic<void*>, kPlaces> places;
std::atomic<uint32_t> failures{0};
std::atomic<uint32_t> allocated{0};
std::atomic<uint32_t> freed{0};

void Expect(bool holds) {
  if (!holds) failures.fetch_add(1, std::memory_order_relaxed);
}

void* Make(uint32_t sizeBytes, uint32_t seed) {
  void* block = nullptr;
  Expect(KivSdMemAlloc(nullptr, 0, sizeBytes, &block, kFile, 1) == KIV_ST_OK);
  Fill(block, {sizeBytes, seed});
  allocated.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void* Resize(void* block, uint32_t newSizeBytes) {
  Head head = *static_cast<Head*>(block);
  const uint32_t common = head.sizeBytes < newSizeBytes ? head.sizeBytes : newSizeBytes;
  Expect(KivSdMemRealloc(nullptr, newSizeBytes, block, &block, kFile, 2) == KIV_ST_OK);
  Expect(IsWhole(block, common));
  head.sizeBytes = newSizeBytes;
  Fill(block, head);
  return block;
}

void Free(void* block) {
  Expect(IsWhole(block, static_cast<Head*>(block)->sizeBytes));
  Expect(KivSdMemFree(nullptr, block, kFile, 3) == KIV_ST_OK);
  freed.fetch_add(1, std::memory_order_relaxed);
}

uint32_t RandomSize(std::mt19937& random) {
  const uint32_t most = random() % 64 == 0 ? 40000 : 400;
  return static_cast<uint32_t>(sizeof(Head)) + static_cast<uint32_t>(random()) % most;
}

void Work(uint32_t thread) {
  std::mt19937 random(thread + 1);
  for (uint32_t round = 0; round < kRounds; ++round) {
    void* mine = Make(RandomSize(random), static_cast<uint32_t>(random()));
    // acquire and release: the exchange passes a block's content together with its address.
    void* other = places[random() % kPlaces].exchange(mine, std::memory_order_acq_rel);
    if (other == nullptr) continue;
    Expect(IsWhole(other, static_cast<Head*>(other)->sizeBytes));
    if (random() % 2 == 0) {
      other = Resize(other, RandomSize(random));
      other = places[random() % kPlaces].exchange(other, std::memory_order_acq_rel);
    }
    if (other != nullptr) Free(other);
  }
}

TEST(MemoryThreads, AnyThreadResizesAndFreesBlocksOfAnyOtherThread) {
  OnThreads(kThreads, Work);
  for (std::atomic<void*>& place : places) {
    void* left = place.exchange(nullptr);
    if (left != nullptr) Free(left);
  }
  EXPECT_EQ(failures.load(), 0u);
  EXPECT_EQ(allocated.load(), kThreads * kRounds);
  EXPECT_EQ(freed.load(), allocated.load());
}

}  // namespace
