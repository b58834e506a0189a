// The cell cache, stopped in the middle of an operation: which thread waits for which, and PUTs
// without memory.
//
// The tests patch the library's calls of the C runtime's heap. A PUT that makes a cell allocates
// while it holds the lock; a query with many sums does, too.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "cube/cell_cache.h"
#include "host_fixture.h"
#include "support/import_patch.h"
#include "support/waiting.h"

namespace cellhost {
namespace {

using kiv::test::ImportPatch;
using kiv::test::kShortMs;
using test::AnswerTo;
using test::CountOf;
using test::InThread;
using test::Put;

// Replaces the library's heap calls for its lifetime. One object at a time.
class Heap {
 public:
  Heap() {
    malloc_ = reinterpret_cast<Malloc*>(mallocPatch_.original());
    realloc_ = reinterpret_cast<Realloc*>(reallocPatch_.original());
    stopped_ = false;
    goOn_ = false;
  }

  // Makes the calling thread's next allocation wait until GoOn.
  static void StopHere() { stopping_ = std::this_thread::get_id(); }
  static void AwaitStop() {
    while (!stopped_) std::this_thread::yield();
  }
  static void GoOn() { goOn_ = true; }

  // Makes a later allocation fail: 0 is the next one.
  static void Fail(uint32_t number) {
    allocations_ = 0;
    failing_ = number;
  }
  static void FailNone() { failing_ = kNever; }

 private:
  using Malloc = void*(size_t);
  using Realloc = void*(void*, size_t);
  static constexpr uint32_t kNever = UINT32_MAX;

  static bool Passes() {
    if (stopping_.load() == std::this_thread::get_id()) {
      stopping_ = std::thread::id();
      stopped_ = true;
      while (!goOn_) std::this_thread::yield();
    }
    return allocations_.fetch_add(1) != failing_;
  }
  static void* Allocate(size_t sizeBytes) { return Passes() ? malloc_(sizeBytes) : nullptr; }
  static void* Reallocate(void* block, size_t sizeBytes) {
    return Passes() ? realloc_(block, sizeBytes) : nullptr;
  }

  static inline Malloc* malloc_;
  static inline Realloc* realloc_;
  static inline std::atomic<std::thread::id> stopping_;
  static inline std::atomic<bool> stopped_;
  static inline std::atomic<bool> goOn_;
  static inline std::atomic<uint32_t> allocations_;
  static inline std::atomic<uint32_t> failing_{kNever};

  ImportPatch mallocPatch_{"malloc", reinterpret_cast<void*>(&Allocate)};
  ImportPatch reallocPatch_{"realloc", reinterpret_cast<void*>(&Reallocate)};
};

// Work on a thread with a record, joined at the end of the scope.
class Meanwhile {
 public:
  explicit Meanwhile(std::function<void()> work)
      : thread_([this, work = std::move(work)] {
          const InThread record;
          work();
          done_ = true;
        }) {}
  Meanwhile(const Meanwhile&) = delete;
  Meanwhile& operator=(const Meanwhile&) = delete;
  ~Meanwhile() { thread_.join(); }

  // Returns whether the work is still not done after a while.
  bool Waits() const {
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
    return !done_;
  }
  void AwaitDone() const {
    while (!done_) std::this_thread::yield();
  }

 private:
  std::atomic<bool> done_{false};
  std::thread thread_;
};

// A power of two: the arrays of the cells are then full.
constexpr uint32_t kRows = 4096;

std::string Row(uint32_t row) { return "row" + std::to_string(row); }

// A cell for each row: the first in column a, the others in column b.
class CellCacheWait : public testing::Test {
 protected:
  CellCacheWait() {
    EXPECT_TRUE(cube_.AddDimension("row") && cube_.AddDimension("column"));
    for (uint32_t row = 0; row < kRows; ++row) {
      const std::string name = Row(row);
      const std::string_view members[] = {name, row == 0 ? "a" : "b"};
      EXPECT_TRUE(cube_.AddFact(members, 1));
    }
  }

  // Stops a PUT in its first allocation under the lock. Uses the lock before, so that the lock's
  // own allocation is already done.
  void StopInPut() {
    CountOf(&cells_);
    PutOrder order;
    Fault fault = {};
    TextStack words;
    EXPECT_TRUE(ParsePut("PUT row1 a 5", &words, &order, &fault));
    Heap::StopHere();
    EXPECT_TRUE(cells_.Put(order, &fault));
  }

  void StopInQuery() {
    CountOf(&cells_);
    Query query;
    Fault fault = {};
    TextStack words;
    std::string_view answer;
    EXPECT_TRUE(ParseQuery("TOP row 1", &words, &query, &fault));
    Heap::StopHere();
    EXPECT_TRUE(cells_.Answer(query, &answer));
    EXPECT_EQ(answer, "TOP row 1: row0 1") << "from before the PUT";
    ResetScratch();
  }

  test::InHost host_;
  Cube cube_;
  CellCache cells_{&cube_};
};

TEST_F(CellCacheWait, QueriesWaitForAPutUnderWay) {
  const Heap heap;
  const Meanwhile put([this] { StopInPut(); });
  Heap::AwaitStop();
  {
    const Meanwhile query([this] { EXPECT_EQ(AnswerTo(&cells_, "SUM row=row1"), "6"); });
    const Meanwhile count([this] { EXPECT_EQ(CountOf(&cells_), kRows + 1); });
    EXPECT_TRUE(query.Waits());
    EXPECT_TRUE(count.Waits());
    Heap::GoOn();
  }
}

TEST_F(CellCacheWait, APutWaitsForAPutUnderWay) {
  const Heap heap;
  const Meanwhile first([this] { StopInPut(); });
  Heap::AwaitStop();
  {
    const Meanwhile second([this] { EXPECT_EQ(Put(&cells_, "PUT row1 a 7"), ""); });
    EXPECT_TRUE(second.Waits());
    Heap::GoOn();
  }
  EXPECT_EQ(AnswerTo(&cells_, "CELL row1 a"), "7");
}

TEST_F(CellCacheWait, QueriesShareTheLockAndAPutWaitsForThem) {
  const Heap heap;
  const Meanwhile query([this] { StopInQuery(); });
  Heap::AwaitStop();
  {
    const Meanwhile other([this] { EXPECT_EQ(AnswerTo(&cells_, "CELL row0 a"), "1"); });
    other.AwaitDone();
    const Meanwhile put([this] { EXPECT_EQ(Put(&cells_, "PUT row5 b 9"), ""); });
    EXPECT_TRUE(put.Waits());
    Heap::GoOn();
  }
  EXPECT_EQ(AnswerTo(&cells_, "TOP row 1"), "row5 9");
}

TEST_F(CellCacheWait, ARefusedPutDoesNotWait) {
  const Heap heap;
  const Meanwhile query([this] { StopInQuery(); });
  Heap::AwaitStop();
  EXPECT_EQ(Put(&cells_, "PUT nosuch a 9"), "nothing stored: 'row' has no member 'nosuch'");
  EXPECT_EQ(Put(&cells_, "PUT row5 9"),
            "nothing stored: a cell has 2 members, one of each dimension, not 1");
  Heap::GoOn();
}

// ---- Memory ----

// Starts with a few cells, so that every array grows several times, at different cells.
class CellCacheMemory : public testing::Test {
 protected:
  static constexpr uint32_t kMembers = 10;  // of each dimension; with kMembers cells initially

  CellCacheMemory() {
    EXPECT_TRUE(cube_.AddDimension("row") && cube_.AddDimension("column"));
    for (uint32_t member = 0; member < kMembers; ++member) {
      const std::string name = std::to_string(member);
      const std::string_view members[] = {name, name};
      EXPECT_TRUE(cube_.AddFact(members, 1));
    }
    EXPECT_EQ(Put(&cells_, "PUT 0 0 1"), "") << "the thread and the lock have met";
  }

  // Repeats the PUT of a new cell with each of its allocations failing once. Returns how often it
  // was refused.
  uint32_t PutAgainstFailures(const std::string& cell) {
    TextStack words;
    PutOrder order;
    Fault fault = {};
    const std::string text = "PUT " + cell + " 1";
    EXPECT_TRUE(ParsePut(text, &words, &order, &fault));
    const uint32_t cells = CountOf(&cells_);
    for (uint32_t refused = 0;; ++refused) {
      Heap::Fail(refused);
      const bool stored = cells_.Put(order, &fault);
      Heap::FailNone();
      if (stored) {
        CheckCells(cells + 1, cell, "1");
        return refused;
      }
      EXPECT_STREQ(fault.text, "nothing stored: no memory for the cell");
      CheckCells(cells, cell, "no data");
    }
  }

  void CheckCells(uint32_t cells, const std::string& cell, const std::string& value) {
    EXPECT_EQ(CountOf(&cells_), cells);
    EXPECT_EQ(AnswerTo(&cells_, "TOP row 10"), SumsOf(cells));
    EXPECT_EQ(AnswerTo(&cells_, "CELL " + cell), value);
  }

  // The expected sums of all rows in the order of TOP, if cells are made row after row.
  static std::string SumsOf(uint32_t cells) {
    const uint32_t made = cells - kMembers;
    const uint32_t full = made / (kMembers - 1);
    const uint32_t rest = made % (kMembers - 1);
    std::string sums;
    for (uint32_t row = 0; row < kMembers; ++row) {
      const uint32_t sum = row < full ? kMembers : row == full ? rest + 1 : 1;
      sums += (row == 0 ? "" : ", ") + std::to_string(row) + " " + std::to_string(sum);
    }
    return sums;
  }

  test::InHost host_;
  Cube cube_;
  CellCache cells_{&cube_};
};

TEST_F(CellCacheMemory, APutSucceedsOrChangesNothing) {
  const Heap heap;
  uint32_t refused = 0;
  for (uint32_t row = 0; row < kMembers; ++row) {
    for (uint32_t column = 0; column < kMembers; ++column) {
      if (row == column) continue;
      refused += PutAgainstFailures(std::to_string(row) + " " + std::to_string(column));
    }
  }
  EXPECT_GE(refused, 7u) << "two arrays grow at 16, 32 and 64 cells, and the index once";
}

}  // namespace
}  // namespace cellhost
