// Short heaps: an owner's heaps and large blocks, and the pool of spare heaps.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/manager.h"
#include "support/process.h"
#include "support/runtime_watch.h"

namespace {

using namespace kiv::test;

constexpr uint64_t kHeaps = kFirstHeaps * kHeapBytes;
constexpr uint32_t kPoolMost = 16;

// Blocks of this size: 4 of them fill a short heap.
constexpr int32_t kFilling = 64 * 1024;
constexpr int kFillingBlocks = 4;

class Owner {
 public:
  Owner() { adMemShortHeapInit(&owner_); }
  ~Owner() { End(); }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;

  void End() { adMemShortHeapTerm(&owner_); }

  operator AdShortHeapOwner*() { return &owner_; }
  AdShortHeapOwner* operator->() { return &owner_; }

  char* heap() const { return static_cast<char*>(owner_.heap); }

  void* Allocate(int32_t sizeBytes) {
    void* block = nullptr;
    EXPECT_EQ(adMemShortHeapMalloc(&owner_, sizeBytes, &block, "tests", 1), KIV_ST_OK);
    return block;
  }

  // Fills the current heap until less than kFilling bytes are free.
  void FillHeap() {
    for (int i = 0; i < kFillingBlocks; ++i) Allocate(kFilling);
  }

  void* Resize(void* block, int32_t sizeBytes) {
    void* resized = nullptr;
    EXPECT_EQ(adMemShortHeapRealloc(&owner_, sizeBytes, block, &resized, "tests", 1), KIV_ST_OK);
    return resized;
  }

  // Returns the owner's heaps in ring order, the current one first.
  std::vector<char*> Heaps() const {
    std::vector<char*> heaps;
    char* heap = static_cast<char*>(owner_.heap);
    do {
      heaps.push_back(heap);
      EXPECT_EQ(PreviousInRing(NextInRing(heap)), heap);
      heap = NextInRing(heap);
    } while (heap != owner_.heap);
    return heaps;
  }

  // Returns the payloads of the owner's large blocks in ring order, from the head.
  std::vector<char*> LargeBlocks() const {
    std::vector<char*> blocks;
    auto* block = static_cast<char*>(owner_.largeBlocks);
    if (block == nullptr) return blocks;
    do {
      const auto header = ReadAt<LargeHeader>(block, 0);
      EXPECT_EQ(header.owner, reinterpret_cast<uint64_t>(&owner_.largeBlocks));
      EXPECT_EQ(ReadAt<LargeHeader>(header.next, 0).previous, block);
      blocks.push_back(block + kLargeHeaderBytes);
      block = static_cast<char*>(header.next);
    } while (block != owner_.largeBlocks);
    return blocks;
  }

 private:
  AdShortHeapOwner owner_ = {};
};

using Blocks = std::vector<char*>;

char* Payload(void* block) { return static_cast<char*>(block); }

uint64_t ShortHeapsHeld() { return TotalsNow().outside / kShortHeapBytes; }

TEST(ShortHeap, AnInitialisedOwnerHasOneHeap) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  AdShortHeapOwner owner = {nullptr, &owner, 1};
  EXPECT_EQ(adMemShortCheckStatus(&owner), 0);
  adMemShortHeapInit(&owner);
  EXPECT_EQ(adMemShortCheckStatus(&owner), 1);
  EXPECT_EQ(owner.largeBlocks, nullptr);
  EXPECT_EQ(owner.freeDisabled, 0u);
  ASSERT_NE(owner.heap, nullptr);
  EXPECT_EQ(IndexOf(owner.heap), kShortIndex);
  EXPECT_EQ(NextInRing(owner.heap), owner.heap);
  EXPECT_EQ(PreviousInRing(owner.heap), owner.heap);
  EXPECT_EQ(ReadAt<uint64_t>(owner.heap, 0), 0u) << "a lock";
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
  // A second initialisation changes nothing.
  void* heap = owner.heap;
  adMemShortDisableFree(&owner);
  adMemShortHeapInit(&owner);
  EXPECT_EQ(owner.heap, heap);
  EXPECT_EQ(owner.freeDisabled, 1u);
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
  adMemShortHeapTerm(&owner);
  EXPECT_EQ(adMemShortCheckStatus(&owner), 0);
  EXPECT_EQ(owner.heap, nullptr);
  // The heap is in the pool.
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
}

TEST(ShortHeap, WithoutShortHeapsAnOwnerHasNoHeap) {
  AdShortHeapOwner owner = {};
  const auto expectNone = [&owner] {
    adMemShortHeapInit(&owner);
    EXPECT_EQ(adMemShortCheckStatus(&owner), 0);
    void* block = &block;
    EXPECT_EQ(adMemShortHeapMalloc(&owner, 100, &block, "tests", 1), KIV_ST_ARGUMENT);
    adMemShortHeapTerm(&owner);
    EXPECT_EQ(adMemShortCheckStatus(&owner), 0);
  };
  ASSERT_EQ(Restart(std::string(kSmall) + "shortmemoryoff"), KIV_ST_OK);
  expectNone();
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  EXPECT_EQ(adMemThreadHeapTerm(), -1);
  expectNone();
  ASSERT_EQ(Restart(kNoFile), KIV_ST_OK);
  expectNone();
}

TEST(ShortHeap, RefusesSizesBelow1) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  void* old = owner.Allocate(1);
  for (const int32_t size : {0, -1, INT32_MIN}) {
    void* block = &block;
    EXPECT_EQ(adMemShortHeapMalloc(owner, size, &block, "tests", 1), KIV_ST_ARGUMENT);
    EXPECT_EQ(adMemShortHeapRealloc(owner, size, nullptr, &block, "tests", 1), KIV_ST_ARGUMENT);
    EXPECT_EQ(adMemShortHeapRealloc(owner, size, old, &block, "tests", 1), KIV_ST_ARGUMENT);
    EXPECT_EQ(block, &block);
  }
}

TEST(ShortHeap, ServesItsOwnerFromItsHeap) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  for (const int32_t size : {1, 24, 25, 160, 161, 4000, kFilling}) {
    void* block = owner.Allocate(size);
    EXPECT_EQ(WordBefore(block), 0u);
    EXPECT_EQ(HeapOf(block), owner.heap());
    EXPECT_GT(Payload(block), owner.heap() + 503);
    EXPECT_LE(Payload(block) + size, owner.heap() + kShortHeapBytes);
    Fill(block, static_cast<uint64_t>(size), 1);
  }
  // A freed block returns to its heap.
  void* block = owner.Allocate(100);
  Free(block);
  EXPECT_EQ(owner.Allocate(100), block);
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
}

TEST(ShortHeap, AFurtherHeapIsInsertedAfterTheCurrentOneAndBecomesCurrent) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  char* a = owner.heap();
  void* first = owner.Allocate(kFilling);
  for (int i = 1; i < kFillingBlocks; ++i) owner.Allocate(kFilling);
  void* block = owner.Allocate(kFilling);
  char* b = owner.heap();
  EXPECT_NE(b, a);
  EXPECT_EQ(HeapOf(block), b);
  EXPECT_EQ(owner.Heaps(), (Blocks{b, a}));
  EXPECT_EQ(IndexOf(b), kShortIndex);
  for (int i = 1; i < kFillingBlocks; ++i) EXPECT_EQ(HeapOf(owner.Allocate(kFilling)), b);
  owner.Allocate(kFilling);
  char* c = owner.heap();
  // The new heap is inserted after b and before a.
  EXPECT_EQ(owner.Heaps(), (Blocks{c, a, b}));
  EXPECT_EQ(TotalsNow().outside, 3 * kShortHeapBytes);

  // Later requests try the current heap first, then the others in ring order. The heap that serves
  // a request does not become current.
  for (int i = 1; i < kFillingBlocks; ++i) EXPECT_EQ(HeapOf(owner.Allocate(kFilling)), c);
  Free(first);
  Free(block);
  EXPECT_EQ(owner.Allocate(kFilling), first);
  EXPECT_EQ(owner.heap(), c);
  EXPECT_EQ(owner.Allocate(kFilling), block);
  EXPECT_EQ(owner.Heaps(), (Blocks{c, a, b}));
  owner.Allocate(kFilling);
  EXPECT_EQ(owner.Heaps().size(), 4u);
  EXPECT_EQ(owner.Heaps()[1], a);
}

TEST(ShortHeap, LargeBlocksAreLinkedInTheOwnersRing) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  char* a = Payload(owner.Allocate(kFilling + 1));
  EXPECT_EQ(HeaderOf(a).sizeBytes, kLargestInHeap + 1);
  EXPECT_EQ(owner->largeBlocks, a - kLargeHeaderBytes);
  char* b = Payload(owner.Allocate(100'000));
  char* c = Payload(owner.Allocate(200'000));
  char* d = Payload(owner.Allocate(300'000));
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{a, b, c, d}));
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes + 600'000 + kLargestInHeap + 1 + 4 * 32);
  // Freeing a block moves the head to the block before it.
  Free(c);
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{b, d, a}));
  Free(b);
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{a, d}));
  // A new block is inserted before the head.
  char* e = Payload(owner.Allocate(100'000));
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{a, d, e}));
  Free(a);
  Free(d);
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{e}));
  Free(e);
  EXPECT_EQ(owner->largeBlocks, nullptr);
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
}

TEST(ShortHeap, EndingAnOwnerFreesItsLargeBlocks) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  {
    Owner owner;
    for (int i = 0; i < 5; ++i) owner.Allocate(100'000);
    owner.End();
    EXPECT_EQ(owner->largeBlocks, nullptr);
    EXPECT_EQ(owner->heap, nullptr);
    EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
    // The owner may be initialised again.
    adMemShortHeapInit(owner);
    EXPECT_EQ(adMemShortCheckStatus(owner), 1);
    EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
  }
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
}

// With maxblock 0 all requests are large, and an owner needs no heap for them.
TEST(ShortHeap, AnOwnerWithoutAHeapCanHaveLargeBlocks) {
  ASSERT_EQ(Restart("numthreadheaps 4 maxblock 0 shortmemoryoff"), KIV_ST_OK);
  Owner owner;
  EXPECT_EQ(adMemShortCheckStatus(owner), 0);
  char* block = Payload(owner.Allocate(1));
  EXPECT_EQ(owner.LargeBlocks(), Blocks{block});
  EXPECT_EQ(TotalsNow().outside, 33u);
  owner.End();
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(ShortHeap, EndingAnOwnerReleasesItsHeapsBeforeItsLargeBlocks) {
  for (const char* pool : {"maxshortmemorypoolsize 0", "limitshortheapsforremove 0"}) {
    ASSERT_EQ(Restart(std::string(kSmall) + pool), KIV_ST_OK);
    Owner owner;
    char* heap = owner.heap();
    char* a = Payload(owner.Allocate(100'000)) - kLargeHeaderBytes;
    char* b = Payload(owner.Allocate(100'000)) - kLargeHeaderBytes;
    char* c = Payload(owner.Allocate(100'000)) - kLargeHeaderBytes;
    const RuntimeWatch watch;
    owner.End();
    // The ring's last block is freed first. That moves the head to the block before it.
    EXPECT_EQ(watch.freed(), (std::vector<const void*>{heap, c, a, b})) << pool;
  }
}

TEST(ShortHeap, WithTheNoFreeSwitchFreedAndMovedBlocksStayAllocated) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    // The owner is never ended: with a large block and the switch on, that would not return.
    Owner& owner = *new Owner;
    void* freed = owner.Allocate(1000);
    void* small = owner.Allocate(1000);
    char* large = Payload(owner.Allocate(100'000));
    Fill(freed, 1000, 1);
    Fill(small, 1000, 2);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    Free(freed);
    char* moved = Payload(owner.Resize(small, 200'000));
    EXPECT_TRUE(IsFilled(moved, 1000, 2));
    void* fromLarge = owner.Resize(large, 1000);
    EXPECT_EQ(HeapOf(fromLarge), owner.heap());
    EXPECT_EQ(owner.LargeBlocks(), (Blocks{large, moved}));
    EXPECT_TRUE(IsFilled(freed, 1000, 1));
    EXPECT_TRUE(IsFilled(small, 1000, 2));
    void* next = owner.Allocate(1000);
    EXPECT_NE(next, freed);
    EXPECT_NE(next, small);
  });
}

// ---- Reallocation ----

TEST(ShortHeapRealloc, NullAllocatesANewBlock) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  EXPECT_EQ(HeapOf(owner.Resize(nullptr, 100)), owner.heap());
  EXPECT_EQ(owner.LargeBlocks(), Blocks{});
  char* large = Payload(owner.Resize(nullptr, 100'000));
  EXPECT_EQ(owner.LargeBlocks(), Blocks{large});
}

TEST(ShortHeapRealloc, StaysInItsHeap) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  void* block = owner.Allocate(1000);
  Fill(block, 1000, 3);
  EXPECT_EQ(owner.Resize(block, 500), block);
  void* grown = owner.Resize(block, 5000);
  EXPECT_NE(grown, block);
  EXPECT_EQ(HeapOf(grown), owner.heap());
  EXPECT_TRUE(IsFilled(grown, 500, 3));
}

// The block's own heap is tried, although another heap is current.
TEST(ShortHeapRealloc, StaysInItsHeapAlthoughAnotherHeapIsCurrent) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  char* a = owner.heap();
  void* block = owner.Allocate(1000);
  owner.FillHeap();
  owner.Allocate(kFilling);
  ASSERT_NE(owner.heap(), a);
  Fill(block, 1000, 3);
  void* grown = owner.Resize(block, 2000);
  EXPECT_EQ(HeapOf(grown), a);
  EXPECT_TRUE(IsFilled(grown, 1000, 3));
}

TEST(ShortHeapRealloc, MovesToAnotherHeapWhenItsOwnIsFull) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  char* a = owner.heap();
  void* block = owner.Allocate(1000);
  owner.FillHeap();
  Fill(block, 1000, 3);
  void* grown = owner.Resize(block, kFilling);
  EXPECT_EQ(HeapOf(grown), owner.heap());
  EXPECT_NE(owner.heap(), a);
  EXPECT_TRUE(IsFilled(grown, 1000, 3));
  // The old block was freed.
  Free(grown);
  EXPECT_EQ(ShortHeapsHeld(), 2u);
}

TEST(ShortHeapRealloc, BecomesALargeBlockAndBack) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  char* other = Payload(owner.Allocate(100'000));
  void* block = owner.Allocate(1000);
  Fill(block, 1000, 3);
  char* large = Payload(owner.Resize(block, kFilling + 1));
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{other, large}));
  EXPECT_TRUE(IsFilled(large, 1000, 3));
  // The old block was freed to its heap.
  EXPECT_EQ(owner.Allocate(1000), block);

  Fill(large, kLargestInHeap, 4);
  char* larger = Payload(owner.Resize(large, 500'000));
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{other, larger}));
  EXPECT_EQ(HeaderOf(larger).sizeBytes, 500'000u);
  EXPECT_TRUE(IsFilled(larger, kLargestInHeap, 4));
  // The head moves, and the resized block is linked at the tail.
  char* resized = Payload(owner.Resize(other, 150'000));
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{larger, resized}));

  void* small = owner.Resize(larger, kFilling);
  EXPECT_EQ(HeapOf(small), owner.heap());
  EXPECT_TRUE(IsFilled(small, kFilling, 4));
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{resized}));
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes + 150'032);
}

// A small block of adMalloc moves to the owner's heap; a large one joins the owner's ring.
TEST(ShortHeapRealloc, TakesOverBlocksOfAdMalloc) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner owner;
  void* block = Allocate(1000);
  Fill(block, 1000, 3);
  void* taken = owner.Resize(block, 500);
  EXPECT_EQ(HeapOf(taken), owner.heap());
  EXPECT_TRUE(IsFilled(taken, 500, 3));
  EXPECT_EQ(Allocate(1000), block);

  void* large = Allocate(100'000);
  Fill(large, 100'000, 4);
  char* resized = Payload(owner.Resize(large, 200'000));
  EXPECT_TRUE(IsFilled(resized, 100'000, 4));
  EXPECT_EQ(owner.LargeBlocks(), Blocks{resized});
  owner.End();
  EXPECT_EQ(TotalsNow().outside, kShortHeapBytes);
}

// Writes a size that no machine could serve into the block's header.
TEST(ShortHeapRealloc, TakesTheLow32BitsOfALargeBlocksSize) {
  ASSERT_EQ(Restart(std::string(kSmall) + "nomemorycontrol"), KIV_ST_OK);
  Owner owner;
  char* dirty = Payload(owner.Allocate(1000));
  Fill(dirty, 1000, 1);
  const std::string content(dirty, 1000);
  Free(dirty);
  char* large = Payload(owner.Allocate(100'000));
  Fill(large, 100'000, 2);
  const uint64_t sizeBytes = (uint64_t{1} << 32) + 100;
  std::memcpy(large - kLargeHeaderBytes, &sizeBytes, sizeof sizeBytes);
  char* small = Payload(owner.Resize(large, 1000));
  EXPECT_EQ(small, dirty);
  EXPECT_TRUE(IsFilled(small, 100, 2));
  EXPECT_EQ(std::string(small + 100, 900), content.substr(100));
}

TEST(ShortHeapRealloc, AtTheLimitLeavesTheBlockUnchanged) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  Owner owner;
  char* a = Payload(owner.Allocate(100'000));
  char* b = Payload(owner.Allocate(100'000));
  char* c = Payload(owner.Allocate(100'000));
  Fill(b, 100'000, 3);
  const Totals before = TotalsNow();
  void* resized = b;
  EXPECT_EQ(adMemShortHeapRealloc(owner, 10'000'000, b, &resized, "tests", 1),
            KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(resized, nullptr);
  EXPECT_TRUE(IsFilled(b, 100'000, 3));
  EXPECT_EQ(TotalsNow(), before);
  // The block is back at the tail; the head moved when it left the ring.
  EXPECT_EQ(owner.LargeBlocks(), (Blocks{a, c, b}));
  void* small = owner.Allocate(1000);
  EXPECT_EQ(adMemShortHeapRealloc(owner, 10'000'000, small, &resized, "tests", 1),
            KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(HeapOf(small), owner.heap());
  EXPECT_EQ(TotalsNow(), before);
}

// ---- The pool ----

// Fills the pool with this number of heaps, in the order of their owners' ends.
void FillPool(uint32_t heaps) {
  std::vector<std::unique_ptr<Owner>> owners;
  for (uint32_t i = 0; i < heaps; ++i) owners.push_back(std::make_unique<Owner>());
}

constexpr char kKeptPool[] = " limitshortheapsforremove 1000";

TEST(ShortPool, ReturnsItsOldestHeapFirstAndEmpty) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Owner a;
  Owner b;
  Owner c;
  char* heaps[] = {a.heap(), b.heap(), c.heap()};
  void* block = b.Allocate(100);
  a.End();
  b.End();
  c.End();
  EXPECT_EQ(ShortHeapsHeld(), 3u);
  Owner d;
  Owner e;
  Owner f;
  EXPECT_EQ(d.heap(), heaps[0]);
  EXPECT_EQ(e.heap(), heaps[1]);
  EXPECT_EQ(f.heap(), heaps[2]);
  EXPECT_EQ(ShortHeapsHeld(), 3u);
  // The heap is empty again: its first block lies at its end.
  EXPECT_EQ(e.Allocate(100), block);
  EXPECT_EQ(NextInRing(e.heap()), e.heap());
  Owner g;
  EXPECT_EQ(ShortHeapsHeld(), 4u);
}

TEST(ShortPool, HoldsUpToItsMaximum) {
  ASSERT_EQ(Restart(std::string(kSmall) + kKeptPool), KIV_ST_OK);
  FillPool(kPoolMost + 5);
  EXPECT_EQ(ShortHeapsHeld(), kPoolMost);
  ASSERT_EQ(Restart(std::string(kSmall) + kKeptPool + " maxshortmemorypoolsize 0"), KIV_ST_OK);
  FillPool(3);
  EXPECT_EQ(ShortHeapsHeld(), 0u);
  ASSERT_EQ(Restart(std::string(kSmall) + kKeptPool + " maxshortmemorypoolsize 1"), KIV_ST_OK);
  FillPool(3);
  EXPECT_EQ(ShortHeapsHeld(), 1u);
}

TEST(ShortPool, WithANegativeMaximumHoldsNothing) {
  ASSERT_EQ(Restart(std::string(kSmall) + kKeptPool + " maxshortmemorypoolsize -1"), KIV_ST_OK);
  FillPool(3);
  EXPECT_EQ(ShortHeapsHeld(), 0u);
}

TEST(ShortPool, WithRoomForOneHeapReleasesTheOtherTwo) {
  ASSERT_EQ(Restart(std::string(kSmall) + kKeptPool + " memoryblockscontrol"), KIV_ST_OK);
  Owner owner;
  for (int i = 0; i < 2 * kFillingBlocks + 1; ++i) owner.Allocate(kFilling);
  ASSERT_EQ(owner.Heaps().size(), 3u);
  char* current = owner.heap();
  FillPool(kPoolMost - 1);
  ASSERT_EQ(ShortHeapsHeld(), 3u + kPoolMost - 1);
  EXPECT_EQ(adMemResetUsedMarkMemoryBlocks(), 0u);
  owner.End();
  EXPECT_EQ(ShortHeapsHeld(), kPoolMost);
  // The pooled heap counts as one free, each released heap as two. 320 KiB are in the class up to
  // 512 KiB.
  Counts expected = {};
  expected.freed[10] = 5;
  EXPECT_EQ(CountsNow(kSinceReset), expected);
  // The current heap was pooled; it is at the pool's tail.
  std::vector<std::unique_ptr<Owner>> owners;
  for (uint32_t i = 0; i < kPoolMost; ++i) owners.push_back(std::make_unique<Owner>());
  EXPECT_EQ(owners.back()->heap(), current);
}

TEST(ShortPool, IsDrainedWhenTheLastOwnerEndsAndMoreThan4HeapsArePooled) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memoryblockscontrol"), KIV_ST_OK);
  FillPool(4);
  EXPECT_EQ(ShortHeapsHeld(), 4u);
  {
    Owner stays;
    {
      Owner others[6];
      EXPECT_EQ(ShortHeapsHeld(), 7u);
    }
    // One heap is still in use.
    EXPECT_EQ(ShortHeapsHeld(), 7u);
    EXPECT_EQ(adMemResetUsedMarkMemoryBlocks(), 0u);
  }
  EXPECT_EQ(TotalsNow().outside, 0u);
  Counts expected = {};
  expected.freed[10] = 1 + 7;  // the owner's heap, then each heap of the pool
  EXPECT_EQ(CountsNow(kSinceReset), expected);
  EXPECT_EQ(TotalsNow(),
            (Totals{0, kHeaps, 0, kHeaps + 7 * kShortHeapBytes, 0, kHeaps + 7 * kShortHeapBytes}));
  Owner next;
  EXPECT_EQ(ShortHeapsHeld(), 1u);
}

// Otherwise the pool would never be drained again.
TEST(ShortPool, AReleasedHeapDoesNotCountAsInUse) {
  ASSERT_EQ(Restart(std::string(kSmall) + "maxshortmemorypoolsize 2 limitshortheapsforremove 1"),
            KIV_ST_OK);
  FillPool(2);
  EXPECT_EQ(ShortHeapsHeld(), 0u) << "two are more than one";
  FillPool(3);
  EXPECT_EQ(ShortHeapsHeld(), 0u) << "the third found the pool full";
}

TEST(ShortPool, ALimitOf0DrainsItAtOnce) {
  ASSERT_EQ(Restart(std::string(kSmall) + "limitshortheapsforremove 0"), KIV_ST_OK);
  FillPool(1);
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(ShortPool, CountsItsArenas) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memoryblockscontrol"), KIV_ST_OK);
  Counts expected = {};
  {
    Owner owner;
    expected.allocated[10] = 1;
    EXPECT_EQ(CountsNow(), expected);
    void* block = owner.Allocate(100);
    expected.allocated[0] = 1;
    EXPECT_EQ(CountsNow(), expected);
    block = owner.Resize(block, 200);
    expected.allocated[1] = 1;
    expected.freed[0] = 1;
    EXPECT_EQ(CountsNow(), expected);
    Free(block);
    expected.freed[1] = 1;
    EXPECT_EQ(CountsNow(), expected);
  }
  expected.freed[10] = 1;
  EXPECT_EQ(CountsNow(), expected);
  {
    // From the pool: no arena is allocated.
    Owner owner;
    EXPECT_EQ(CountsNow(), expected);
  }
  expected.freed[10] = 2;
  EXPECT_EQ(CountsNow(), expected);
}

// ---- Without memory ----

TEST(ShortHeap, WithoutMemoryAnOwnerHasNoHeapAndAMessageIsSent) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M memoryblockscontrol"), KIV_ST_OK);
  Listen();
  const uint64_t room = 10485760 - kHeaps;
  void* large = Allocate(room - 32 - kShortHeapBytes + 1);
  TakeMessages();
  const Totals before = TotalsNow();
  Owner owner;
  EXPECT_EQ(adMemShortCheckStatus(owner), 0);
  EXPECT_EQ(TotalsNow(), before);
  EXPECT_EQ(TakeMessages(),
            std::vector<Message>{Refused(before.used() + kShortHeapBytes, kShortHeapBytes)});
  EXPECT_EQ(CountsNow().allocated[10], 0u);
  Free(large);
  adMemShortHeapInit(owner);
  EXPECT_EQ(adMemShortCheckStatus(owner), 1);
}

TEST(ShortHeap, WithoutMemoryInitialisingLeavesTheOwnersRingAndFlagUnchanged) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  void* large = Allocate(10485760 - kHeaps - kLargeHeaderBytes);
  AdShortHeapOwner owner = {nullptr, &owner, 1};
  adMemShortHeapInit(&owner);
  EXPECT_EQ(owner.heap, nullptr);
  EXPECT_EQ(owner.largeBlocks, &owner);
  EXPECT_EQ(owner.freeDisabled, 1u);
  Free(large);
}

TEST(ShortHeap, WithoutMemoryForAFurtherHeapARequestFails) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  Listen();
  Owner owner;
  char* heap = owner.heap();
  void* block = owner.Allocate(kFilling);
  for (int i = 1; i < kFillingBlocks; ++i) owner.Allocate(kFilling);
  void* large = Allocate(10485760 - kHeaps - kShortHeapBytes - 32);
  TakeMessages();
  const Totals before = TotalsNow();
  void* none = block;
  EXPECT_EQ(adMemShortHeapMalloc(owner, kFilling, &none, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(TotalsNow(), before);
  EXPECT_EQ(owner.Heaps(), Blocks{heap});
  EXPECT_EQ(TakeMessages(),
            std::vector<Message>{Refused(before.used() + kShortHeapBytes, kShortHeapBytes)});
  Free(block);
  EXPECT_EQ(owner.Allocate(kFilling), block);
  Free(large);
}

TEST(ShortHeap, WarnsWhenItsArenaCrosses90Percent) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  const uint64_t mark = 10485760 / 100 * 90;
  void* large = Allocate(mark - kHeaps - 32);
  Listen();
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  Owner owner;
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(mark + kShortHeapBytes)});
  Free(large);
}

}  // namespace
