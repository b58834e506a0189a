// Races between the requests of two threads: for a heap that has run dry, and for the pool of short
// heaps. The tests run every order that interrupts each request at most once. Each request
// therefore loses every possible race.
//
// This program compiles the sources of slots, exchanges and the pool again, with interruption
// points around their locks and around each access to a slot.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "memsys/slots.h"
#include "stress/delay.h"
#include "support/interleaving.h"
#include "support/manager.h"

void kiv::stress::Delay() { test::Point(); }

extern "C" uint32_t __real_KivSdThreadYield(KivSdContext*);
extern "C" uint32_t __wrap_KivSdThreadYield(KivSdContext*);

// A thread that yields lets the other one run.
extern "C" uint32_t __wrap_KivSdThreadYield(KivSdContext* ctx) {
  return kiv::test::Blocked() ? KIV_ST_OK : __real_KivSdThreadYield(ctx);
}

namespace {

using namespace kiv::test;

// ---- Exchanges ----

// Blocks of this size fill a heap completely.
constexpr uint64_t kFilling = 65'448;
constexpr int kBlocksPerHeap = 8;
constexpr size_t kSpares = 8;

char* HeapOfSlot(size_t number) { return reinterpret_cast<char*>(kiv::slots[number].heap.load()); }

bool IsSettled(size_t number) {
  return kiv::slots[number].current.load() == kiv::slots[number].heap.load();
}

// Expects that each slot has a heap with its index and that the ring has all other heaps.
void ExpectSlotsAndRing(char* spare, size_t spares) {
  std::set<char*> heaps;
  for (size_t slot = 0; slot < kSlots; ++slot) {
    EXPECT_TRUE(IsSettled(slot));
    EXPECT_EQ(IndexOf(HeapOfSlot(slot)), slot);
    heaps.insert(HeapOfSlot(slot));
  }
  char* heap = spare;
  for (size_t i = 0; i < spares; ++i) {
    EXPECT_EQ(IndexOf(heap), kSpareIndex);
    EXPECT_EQ(PreviousInRing(NextInRing(heap)), heap);
    heaps.insert(heap);
    heap = NextInRing(heap);
  }
  EXPECT_EQ(heap, spare);
  EXPECT_EQ(heaps.size(), kSlots + spares);
}

// Two requests for slot 0, whose heap has no room for the second request.
class Exchanges : public testing::Test {
 protected:
  ~Exchanges() override {
    for (void* block : blocks_) Free(block);
  }

  void Take(uint64_t sizeBytes) { blocks_.push_back(Allocate(sizeBytes)); }

  // Fills the heap of slot 0, which has some blocks already.
  void FillHeap(int blocks = 0) {
    for (int i = blocks; i < kBlocksPerHeap; ++i) Take(kFilling);
  }

  void GiveAllBack() {
    for (void* block : blocks_) Free(block);
    blocks_.clear();
  }

  // Returns the two requests, with the check at every point that all tests share.
  Interleaving Requests(uint64_t firstBytes, uint64_t secondBytes) {
    return {.first = [=, this] { served_[0] = Allocate(firstBytes); },
            .second = [=, this] { served_[1] = Allocate(secondBytes); },
            .onPoint =
                [this] {
                  // A new heap in a settled slot must have the slot's index.
                  char* heap = HeapOfSlot(0);
                  if (heap == dry_ || !IsSettled(0)) return;
                  EXPECT_EQ(IndexOf(heap), 0u);
                },
            .prepare = [] {},
            .check = [] {}};
  }

  std::vector<void*> blocks_;
  char* dry_ = nullptr;
  void* served_[2] = {};
};

TEST_F(Exchanges, OfOneHeapByTwoThreadsHappenOnce) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Interleaving both = Requests(kFilling, kFilling);
  both.prepare = [this] {
    FillHeap();
    dry_ = HeapOfSlot(0);
  };
  both.check = [this] {
    for (void* block : served_) {
      EXPECT_EQ(HeapOf(block), HeapOfSlot(0)) << "the second is served by the first one's heap";
      blocks_.push_back(block);
    }
    EXPECT_NE(HeapOfSlot(0), dry_);
    ExpectSlotsAndRing(dry_, kSpares);
    GiveAllBack();
  };
  EXPECT_GT(both.RunAll(), 100u);
}

// A thread that chose a heap, and locks it after it left its slot, must read the slot again.
TEST_F(Exchanges, BetweenTheChoiceOfAHeapAndItsLockAreDetected) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  bool mustMove = false;
  Interleaving both = Requests(24, kFilling);
  both.prepare = [this, &mustMove] {
    Take(24);
    FillHeap(1);
    // The heap may serve a request, because it has a parked block.
    Free(blocks_.front());
    blocks_.erase(blocks_.begin());
    dry_ = HeapOfSlot(0);
    mustMove = false;
  };
  both.onStop = [this, &mustMove](bool wholly) {
    const uint32_t parked = ReadAt<uint32_t>(dry_, 440);
    mustMove = wholly && parked != 0;
  };
  uint64_t moved = 0;
  both.check = [&] {
    if (mustMove) {
      ++moved;
      EXPECT_EQ(HeapOf(served_[0]), HeapOfSlot(0));
    }
    EXPECT_NE(HeapOf(served_[1]), dry_);
    ExpectSlotsAndRing(dry_, kSpares);
    for (void* block : served_) blocks_.push_back(block);
    GiveAllBack();
  };
  EXPECT_GT(both.RunAll(), 100u);
  EXPECT_GT(moved, 0u);
}

// A new heap takes its slot without the ring lock.
TEST_F(Exchanges, ForANewHeapByTwoThreadsMakeOneHeap) {
  ASSERT_EQ(Restart("numheaps 4000 numthreadheaps 4 heapsize 512K"), KIV_ST_OK);
  for (size_t i = 0; i <= kSpares; ++i) FillHeap();
  uint64_t made = kFirstHeaps;
  Interleaving both = Requests(kFilling, kFilling);
  both.prepare = [this] { dry_ = HeapOfSlot(0); };
  both.check = [&] {
    ++made;
    EXPECT_EQ(TotalsNow().inHeaps, made * kHeapBytes);
    EXPECT_NE(HeapOfSlot(0), dry_);
    for (void* block : served_) {
      EXPECT_EQ(HeapOf(block), HeapOfSlot(0));
      blocks_.push_back(block);
    }
    ExpectSlotsAndRing(dry_, made - kSlots);
    FillHeap(2);
  };
  EXPECT_GT(both.RunAll(), 100u);
}

// Even when another thread fills the new heap at once.
TEST_F(Exchanges, ForANewHeapServeTheRequestThatMadeIt) {
  ASSERT_EQ(Restart("numheaps 4000 numthreadheaps 4 heapsize 512K"), KIV_ST_OK);
  for (size_t i = 0; i <= kSpares; ++i) FillHeap();
  Interleaving both = Requests(kFilling, kFilling);
  both.second = [this] { FillHeap(); };
  both.onPoint = {};  // the new heap runs dry, too
  both.check = [this] {
    EXPECT_FALSE(IsLarge(served_[0]));
    EXPECT_EQ(TotalsNow().outside, 0u);
    blocks_.push_back(served_[0]);
    // One of the nine blocks lies in a second heap.
    FillHeap(1);
  };
  EXPECT_GT(both.RunAll(), 100u);
}

// ---- The pool of short heaps ----

// An owner that one thread after the other uses.
class Owner {
 public:
  void Begin() { adMemShortHeapInit(&owner_); }
  void End() { adMemShortHeapTerm(&owner_); }

  char* heap() const { return static_cast<char*>(owner_.heap); }

  // Expects that the owner's heap serves a request.
  void ExpectServed() {
    void* block = nullptr;
    EXPECT_EQ(adMemShortHeapMalloc(&owner_, 100, &block, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(HeapOf(block), heap());
    EXPECT_EQ(IndexOf(heap()), kShortIndex);
    EXPECT_EQ(NextInRing(heap()), heap());
  }

 private:
  AdShortHeapOwner owner_ = {};
};

uint64_t ShortHeapsHeld() { return TotalsNow().outside / kShortHeapBytes; }

const std::string kPoolOfOne = std::string(kSmall) + "maxshortmemorypoolsize 1 ";

class Pool : public testing::Test {
 protected:
  Owner a_;
  Owner b_;
  Owner other_;
};

TEST_F(Pool, TakesNoHeapIfItFilledUpMeanwhile) {
  ASSERT_EQ(Restart(kPoolOfOne + "limitshortheapsforremove 1000"), KIV_ST_OK);
  Interleaving both = {.first = [this] { a_.End(); },
                       .second = [this] { b_.End(); },
                       .prepare =
                           [this] {
                             a_.Begin();
                             b_.Begin();
                             EXPECT_EQ(ShortHeapsHeld(), 2u);
                           },
                       .check = [] { EXPECT_EQ(ShortHeapsHeld(), 1u); }};
  EXPECT_GT(both.RunAll(), 5u);
}

// The pool is drained only if no heap is in use.
TEST_F(Pool, CountsAHeapThatItDidNotTakeAsNotInUse) {
  ASSERT_EQ(Restart(kPoolOfOne + "limitshortheapsforremove 0"), KIV_ST_OK);
  Interleaving both = {.first = [this] { a_.End(); },
                       .second = [this] { b_.End(); },
                       .prepare =
                           [this] {
                             a_.Begin();
                             b_.Begin();
                           },
                       .check = [] { EXPECT_EQ(ShortHeapsHeld(), 0u); }};
  EXPECT_GT(both.RunAll(), 5u);
}

// One owner gets the last heap of the pool, the other a new heap.
TEST_F(Pool, CountsEveryHeapInUseOnceIfItRanOutMeanwhile) {
  ASSERT_EQ(Restart(kPoolOfOne + "limitshortheapsforremove 0"), KIV_ST_OK);
  Interleaving both = {.first = [this] { a_.Begin(); },
                       .second = [this] { b_.Begin(); },
                       .prepare =
                           [this] {
                             other_.Begin();
                             a_.Begin();
                             a_.End();
                             EXPECT_EQ(ShortHeapsHeld(), 2u) << "one of them in the pool";
                           },
                       .check =
                           [this] {
                             a_.ExpectServed();
                             b_.ExpectServed();
                             EXPECT_NE(a_.heap(), b_.heap());
                             EXPECT_EQ(ShortHeapsHeld(), 3u);
                             // The pool is drained when the last owner ends, and not before.
                             a_.End();
                             b_.End();
                             EXPECT_EQ(ShortHeapsHeld(), 2u);
                             other_.End();
                             EXPECT_EQ(ShortHeapsHeld(), 0u);
                           }};
  EXPECT_GT(both.RunAll(), 5u);
}

TEST_F(Pool, CountsNoHeapInUseIfItRanOutAndThereIsNoMemory) {
  ASSERT_EQ(Restart(kPoolOfOne + "limitshortheapsforremove 0 memorylimit 10M"), KIV_ST_OK);
  // There is memory for two short heaps.
  void* large = Allocate(10485760 - kFirstHeaps * kHeapBytes - 2 * kShortHeapBytes - 32);
  const uint64_t held = TotalsNow().outside;
  Interleaving both = {.first = [this] { a_.Begin(); },
                       .second = [this] { b_.Begin(); },
                       .prepare =
                           [this] {
                             other_.Begin();
                             a_.Begin();
                             a_.End();
                           },
                       .check =
                           [this, held] {
                             EXPECT_NE(a_.heap() == nullptr, b_.heap() == nullptr);
                             a_.End();
                             b_.End();
                             EXPECT_EQ(TotalsNow().outside, held + 2 * kShortHeapBytes);
                             other_.End();
                             EXPECT_EQ(TotalsNow().outside, held);
                           }};
  EXPECT_GT(both.RunAll(), 5u);
  Free(large);
}

}  // namespace
