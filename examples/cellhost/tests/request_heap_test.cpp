// A request's memory, in every memory mode.
#include "host/request_heap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "kivsdu/status.h"
#include "memory_modes.h"
#include "support/process.h"

namespace cellhost {
namespace {

using kiv::test::Fill;
using kiv::test::IsFilled;
using test::InMemoryMode;
using test::MemoryMode;

// Sizes from 1 byte to more than a short heap holds; their sum exceeds several short heaps.
uint32_t SizeOf(uint32_t number) { return number % 50 == 49 ? 400'000 : 1 + 37 * number; }

constexpr uint32_t kPieces = 200;

// Whether two requests in succession have a short heap.
bool HasShortHeap(const MemoryMode& mode) {
  const InMemoryMode inMode(mode);
  RequestHeap heap;
  heap.Begin();
  const bool has = heap.hasShortHeap();
  heap.End();
  EXPECT_FALSE(heap.hasShortHeap());
  heap.Begin();
  EXPECT_EQ(heap.hasShortHeap(), has);
  heap.End();
  return has;
}

std::vector<void*> TakePieces(RequestHeap* heap) {
  std::vector<void*> pieces;
  for (uint32_t number = 0; number < kPieces; ++number) {
    void* piece = nullptr;
    EXPECT_EQ(heap->Take(SizeOf(number), &piece), KIV_ST_OK) << number;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(piece) % 8, 0u) << number;
    Fill(piece, SizeOf(number), number);
    pieces.push_back(piece);
  }
  return pieces;
}

void ExpectWhole(const std::vector<void*>& pieces) {
  for (uint32_t number = 0; number < kPieces; ++number) {
    if (pieces[number] == nullptr) continue;
    EXPECT_TRUE(IsFilled(pieces[number], SizeOf(number), number)) << number;
  }
}

// Frees every third piece, beginning with number `remainder`.
void GiveBack(RequestHeap* heap, std::vector<void*>* pieces, uint32_t remainder) {
  for (uint32_t number = remainder; number < kPieces; number += 3) {
    heap->GiveBack((*pieces)[number]);
    (*pieces)[number] = nullptr;
  }
}

// A typical request: allocates, frees some pieces, allocates again, and leaves the rest to the end.
void Request(RequestHeap* heap) {
  std::vector<void*> pieces = TakePieces(heap);
  ExpectWhole(pieces);
  GiveBack(heap, &pieces, 0);
  ExpectWhole(pieces);
  GiveBack(heap, &pieces, 1);
  const std::vector<void*> more = TakePieces(heap);
  ExpectWhole(pieces);
  ExpectWhole(more);
  heap->End();
}

TEST(RequestHeap, HasAShortHeapIfTheModeHasThem) {
  IN_FRESH_PROCESS([] { EXPECT_TRUE(HasShortHeap(test::kHeaps)); });
  IN_FRESH_PROCESS([] { EXPECT_TRUE(HasShortHeap(test::kLargeBlocks)); });
  IN_FRESH_PROCESS([] { EXPECT_FALSE(HasShortHeap(test::kNoShortHeaps)); });
  IN_FRESH_PROCESS([] { EXPECT_FALSE(HasShortHeap(test::kNoHeaps)); });
  IN_FRESH_PROCESS([] { EXPECT_FALSE(HasShortHeap(test::kPlain)); });
}

// The first request may leave a spare heap for later requests.
TEST(RequestHeap, FreesEveryPieceAtTheEnd) {
  for (const MemoryMode& mode : test::kMemoryModes) {
    SCOPED_TRACE(mode.name);
    IN_FRESH_PROCESS([&] {
      const InMemoryMode inMode(mode);
      RequestHeap heap;
      Request(&heap);
      const uint64_t before = MemoryTotalsNow().used();
      for (int request = 0; request < 10; ++request) Request(&heap);
      EXPECT_EQ(MemoryTotalsNow().used(), before);
      EXPECT_EQ(MemoryTotalsNow().counted, mode.configuration[0] != '\0');
    });
  }
}

TEST(RequestHeap, IsCountedWhileTheRequestLasts) {
  IN_FRESH_PROCESS([] {
    const InMemoryMode inMode(test::kHeaps);
    constexpr uint32_t kBytes = 1'000'000;
    RequestHeap heap;
    heap.Begin();
    const uint64_t before = MemoryTotalsNow().used();
    void* piece = nullptr;
    EXPECT_EQ(heap.Take(kBytes, &piece), KIV_ST_OK);
    EXPECT_GE(MemoryTotalsNow().used(), before + kBytes);
    heap.End();
    EXPECT_LE(MemoryTotalsNow().used(), before);
  });
}

// In this mode each block is counted separately.
TEST(RequestHeap, LeavesNothingBehindWithoutHeaps) {
  IN_FRESH_PROCESS([] {
    const InMemoryMode inMode(test::kNoHeaps);
    const uint64_t before = MemoryTotalsNow().used();
    RequestHeap heap;
    Request(&heap);
    EXPECT_EQ(MemoryTotalsNow().used(), before);
  });
}

TEST(RequestHeap, RefusesAPieceOf2GiB) {
  for (const MemoryMode& mode : {test::kHeaps, test::kPlain}) {
    SCOPED_TRACE(mode.name);
    IN_FRESH_PROCESS([&] {
      const InMemoryMode inMode(mode);
      RequestHeap heap;
      void* piece = &heap;
      EXPECT_EQ(heap.Take(0x80000000u, &piece), KIV_ST_OUT_OF_MEMORY);
      EXPECT_EQ(piece, nullptr);
      heap.End();
    });
  }
}

TEST(RequestHeap, GoesOnAfterARefusal) {
  IN_FRESH_PROCESS([] {
    const InMemoryMode inMode(test::kHeaps);
    RequestHeap heap;
    void* piece = nullptr;
    EXPECT_EQ(heap.Take(100'000'000, &piece), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(piece, nullptr);
    EXPECT_EQ(MemoryMessagesSeen().refusals, 1u);
    Request(&heap);
  });
}

}  // namespace
}  // namespace cellhost
