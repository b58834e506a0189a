// The table of checked handles: look-up, generations, kinds, the largest table, and threads that
// take and free slots at once.
#include "os/lnx/handles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <set>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/lnx/object_word.h"

namespace {

using namespace kiv::os;

constexpr uint32_t kSlots = 1u << kSlotNumberBits;

struct Made {
  Slot* slot;
  void* handle;
};

Made Make(Kind kind) {
  Slot* slot = TakeSlot();
  if (slot == nullptr) return {nullptr, nullptr};
  return {slot, PublishSlot(slot, kind)};
}

void End(const Made& made, Kind kind) {
  EXPECT_TRUE(RetireHandle(made.slot, made.handle, kind));
  FreeSlot(made.slot);
}

uintptr_t NumberOf(const void* handle) { return reinterpret_cast<uintptr_t>(handle); }
void* HandleOf(uintptr_t number) { return reinterpret_cast<void*>(number); }

TEST(HandleTable, FindsAHandleOnlyAsItsOwnKind) {
  const Made made = Make(Kind::kEvent);
  EXPECT_EQ(FindSlot(made.handle, Kind::kEvent), made.slot);
  EXPECT_EQ(FindSlot(made.handle, Kind::kMutex), nullptr);
  EXPECT_EQ(FindSlot(made.handle, Kind::kFree), nullptr);
  EXPECT_EQ(KindOf(made.handle), Kind::kEvent);
  End(made, Kind::kEvent);
  EXPECT_EQ(FindSlot(made.handle, Kind::kEvent), nullptr);
  EXPECT_EQ(KindOf(made.handle), Kind::kFree);
}

TEST(HandleTable, HandlesFitIn31BitsAndAreNeverNull) {
  const Made made = Make(Kind::kFile);
  EXPECT_NE(made.handle, nullptr);
  EXPECT_LE(NumberOf(made.handle), uintptr_t{INT32_MAX});
  End(made, Kind::kFile);
}

TEST(HandleTable, RefusesNumbersThatAreNoHandles) {
  const Made made = Make(Kind::kEvent);
  const uintptr_t number = NumberOf(made.handle);
  for (const uintptr_t other :
       {uintptr_t{0}, uintptr_t{1}, UINTPTR_MAX, UINTPTR_MAX - 1, number | uintptr_t{1} << 31,
        number | uintptr_t{1} << 32, number ^ uintptr_t{1} << kSlotNumberBits, uintptr_t{INT32_MAX},
        uintptr_t{0x7FFFFFF0}}) {
    EXPECT_EQ(FindSlot(HandleOf(other), Kind::kEvent), nullptr) << std::hex << other;
    EXPECT_EQ(KindOf(HandleOf(other)), Kind::kFree) << std::hex << other;
  }
  End(made, Kind::kEvent);
}

TEST(HandleTable, GivesASlotANewHandleEachTime) {
  std::set<void*> handles;
  const Made first = Make(Kind::kEvent);
  handles.insert(first.handle);
  Made made = first;
  for (uint32_t i = 1; i < kMaxGeneration; ++i) {
    ASSERT_TRUE(RetireHandle(made.slot, made.handle, Kind::kEvent));
    made.handle = PublishSlot(made.slot, Kind::kEvent);
    EXPECT_TRUE(handles.insert(made.handle).second) << i;
    EXPECT_EQ(FindSlot(first.handle, Kind::kEvent), nullptr);
  }
  ASSERT_TRUE(RetireHandle(made.slot, made.handle, Kind::kEvent));
  made.handle = PublishSlot(made.slot, Kind::kEvent);
  EXPECT_EQ(made.handle, first.handle) << "after all generations the numbers begin again";
  End(made, Kind::kEvent);
}

TEST(HandleTable, UsesTheSlotThatWasFreedLongestAgo) {
  const Made one = Make(Kind::kEvent);
  const Made two = Make(Kind::kEvent);
  End(one, Kind::kEvent);
  End(two, Kind::kEvent);
  std::vector<Made> made;
  size_t places[2] = {};
  while (places[0] == 0 || places[1] == 0) {
    made.push_back(Make(Kind::kEvent));
    if (made.back().slot == one.slot) places[0] = made.size();
    if (made.back().slot == two.slot) places[1] = made.size();
  }
  EXPECT_LT(places[0], places[1]);
  for (const Made& each : made) End(each, Kind::kEvent);
}

TEST(HandleTable, OfSeveralClosersOnlyOneSucceeds) {
  constexpr int kRounds = 2000;
  for (int round = 0; round < kRounds; ++round) {
    const Made made = Make(Kind::kPipe);
    std::atomic<int> closed{0};
    const auto close = [&] {
      if (RetireHandle(made.slot, made.handle, Kind::kPipe)) ++closed;
    };
    std::thread other(close);
    close();
    other.join();
    ASSERT_EQ(closed, 1);
    FreeSlot(made.slot);
  }
}

TEST(HandleTable, HoldsAMillionHandlesAndThenNoMore) {
  std::vector<Made> made;
  made.reserve(kSlots);
  for (Made next = Make(Kind::kSearch); next.slot != nullptr; next = Make(Kind::kSearch)) {
    made.push_back(next);
  }
  EXPECT_EQ(made.size(), kSlots);
  std::vector<void*> handles;
  for (const Made& each : made) {
    ASSERT_EQ(FindSlot(each.handle, Kind::kSearch), each.slot);
    handles.push_back(each.handle);
  }
  std::sort(handles.begin(), handles.end());
  EXPECT_EQ(std::unique(handles.begin(), handles.end()), handles.end());

  KivSdContext record = {};
  KivHandle event = nullptr;
  EXPECT_EQ(KivSdEventCreate(&record, &event), KIV_ST_EVENT_CREATE);
  EXPECT_EQ(record.osError, static_cast<uint32_t>(ENOMEM));
  for (const Made& each : made) End(each, Kind::kSearch);
  EXPECT_EQ(KivSdEventCreate(nullptr, &event), KIV_ST_OK);
  EXPECT_EQ(KivSdEventClose(nullptr, &event), KIV_ST_OK);
}

TEST(HandleTable, ThreadsTakeAndFreeSlotsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20'000;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const Made made = Make(Kind::kThread);
        if (FindSlot(made.handle, Kind::kThread) != made.slot) ++wrong;
        if (!RetireHandle(made.slot, made.handle, Kind::kThread)) ++wrong;
        if (FindSlot(made.handle, Kind::kThread) != nullptr) ++wrong;
        FreeSlot(made.slot);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// A thread that found the slot before another thread closed the handle must not change the next
// object in the slot.
TEST(ObjectWords, OfAnotherGenerationAreNotChanged) {
  const Made made = Make(Kind::kBlock);
  auto* word = ContentOf<ObjectWord>(made.slot);
  word->store(IdentityOf(made.handle));
  EXPECT_TRUE(EnterObject(word, IdentityOf(made.handle)));
  EXPECT_FALSE(LeaveObject(word));
  const uint64_t next = uint64_t{GenerationToCome(made.slot)} << kGenerationShift;
  word->store(next | 5);
  EXPECT_FALSE(EnterObject(word, IdentityOf(made.handle)));
  EXPECT_EQ(word->load(), next | 5);
  End(made, Kind::kBlock);
}

TEST(ObjectWords, OfAClosedObjectAreEndedByTheLastUser) {
  const Made made = Make(Kind::kBlock);
  auto* word = ContentOf<ObjectWord>(made.slot);
  word->store(IdentityOf(made.handle));
  EXPECT_TRUE(EnterObject(word, IdentityOf(made.handle)));
  EXPECT_TRUE(EnterObject(word, IdentityOf(made.handle)));
  const Closing closing = CloseHandle(made.handle, Kind::kBlock);
  EXPECT_TRUE(closing.result.ok);
  EXPECT_EQ(closing.ended, nullptr);
  EXPECT_FALSE(EnterObject(word, IdentityOf(made.handle)));
  EXPECT_FALSE(LeaveObject(word));
  EXPECT_TRUE(LeaveObject(word));
  FreeSlot(made.slot);
  EXPECT_FALSE(CloseHandle(made.handle, Kind::kBlock).result.ok);
}

// A figure to read, not a limit: a busy machine must not fail the test. The best of many short runs
// is one that nothing interrupted.
TEST(HandleTable, FindsAHandleInAFewNanoseconds) {
  constexpr int kRuns = 300;
  constexpr uint32_t kLookUps = 20'000;
  const Made made = Make(Kind::kSemaphore);
  uint64_t found = 0;
  double best = 1e9;
  for (int run = 0; run < kRuns; ++run) {
    const auto start = std::chrono::steady_clock::now();
    for (uint32_t i = 0; i < kLookUps; ++i) {
      void* handle = made.handle;
      asm volatile("" : "+r"(handle));  // a new number each time, as far as the compiler knows
      found += FindSlot(handle, Kind::kSemaphore) != nullptr ? 1 : 0;
    }
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
    best = std::min(best, spent.count() / kLookUps);
  }
  EXPECT_EQ(found, uint64_t{kRuns} * kLookUps);
  std::printf("look-up of a handle: %.2f ns\n", best);
  End(made, Kind::kSemaphore);
}

}  // namespace
