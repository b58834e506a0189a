// Histories of kernel objects, locks and segments under random schedules, checked against sequential models.
// Broken objects show that the checker refuses what is not linearizable.
//
// A failure names the seed. KIV_LINEARIZABILITY_ROUNDS=n runs n schedules of each object.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "kivsdu/kivsdu.h"
#include "linearizability/checker.h"
#include "linearizability/recorder.h"
#include "support/segment.h"
#include "support/waiting.h"

namespace {

using kiv::linearizability::IsLinearizable;
using kiv::linearizability::kOperationsOfThread;
using kiv::linearizability::Operation;
using kiv::linearizability::Record;
using kiv::test::SegmentEnd;
using kiv::test::UniqueName;

uint32_t Rounds() {
  const char* value = std::getenv("KIV_LINEARIZABILITY_ROUNDS");
  return value == nullptr ? 20 : static_cast<uint32_t>(std::strtoul(value, nullptr, 10));
}

// ---- Semaphores and events: units that are given and taken ----

struct UnitCall {
  enum class Kind { kGive, kTake, kReset } kind;
  bool succeeded;
  int32_t before;  // a give's previous count; -1 if the object does not tell
};
using UnitHistory = std::vector<Operation<UnitCall>>;

// A semaphore; with a maximum of 1 and gives that never fail, an automatic event.
struct UnitModel {
  using State = int32_t;
  State initial;
  int32_t maximum;
  bool isEvent;

  std::optional<State> Next(const State& count, const UnitCall& call) const {
    switch (call.kind) {
      case UnitCall::Kind::kGive:
        return Give(count, call);
      case UnitCall::Kind::kTake:
        if (call.succeeded) return count > 0 ? std::optional(count - 1) : std::nullopt;
        return count == 0 ? std::optional(count) : std::nullopt;
      default:
        return 0;
    }
  }

 private:
  std::optional<State> Give(State count, const UnitCall& call) const {
    if (isEvent) return 1;
    if (!call.succeeded) return count == maximum ? std::optional(count) : std::nullopt;
    if (count == maximum || (call.before >= 0 && call.before != count)) return std::nullopt;
    return count + 1;
  }
};

// An object under test: gives and takes one unit without waiting.
struct Semaphore {
  static constexpr int32_t kMaximum = 2;
  static constexpr UnitModel kModel = {1, kMaximum, false};
  KivHandle handle = nullptr;

  Semaphore() { EXPECT_EQ(KivSdCntSemCreate(nullptr, nullptr, 1, kMaximum, &handle), KIV_ST_OK); }
  ~Semaphore() { EXPECT_EQ(KivSdCntSemClose(nullptr, &handle), KIV_ST_OK); }

  UnitCall Give() {
    int32_t before = -1;
    const bool given = KivSdCntSemClear(nullptr, &handle, 1, &before) == KIV_ST_OK;
    return {UnitCall::Kind::kGive, given, given ? before : -1};
  }
  UnitCall Take() {
    return {UnitCall::Kind::kTake, KivSdCntSemRequest(nullptr, &handle, 0) == KIV_ST_OK, -1};
  }
  UnitCall Reset() { return Take(); }
};

struct Event {
  static constexpr UnitModel kModel = {0, 1, true};
  KivHandle handle = nullptr;

  Event() { EXPECT_EQ(KivSdStdEventCreate(nullptr, &handle), KIV_ST_OK); }
  ~Event() { EXPECT_EQ(KivSdStdEventClose(nullptr, &handle), KIV_ST_OK); }

  UnitCall Give() {
    return {UnitCall::Kind::kGive, KivSdStdEventSet(nullptr, &handle) == KIV_ST_OK, -1};
  }
  UnitCall Take() {
    return {UnitCall::Kind::kTake, KivSdStdEventTimedWait(nullptr, &handle, 0) == KIV_ST_OK, -1};
  }
  UnitCall Reset() {
    return {UnitCall::Kind::kReset, KivSdStdEventReset(nullptr, &handle) == KIV_ST_OK, -1};
  }
};

// Broken: reads and writes the count in two steps.
struct TornSemaphore {
  static constexpr UnitModel kModel = {1, 2, false};
  std::atomic<int32_t> count{1};

  UnitCall Give() {
    const int32_t before = count;
    if (before == kModel.maximum) return {UnitCall::Kind::kGive, false, -1};
    std::this_thread::yield();
    count = before + 1;
    return {UnitCall::Kind::kGive, true, before};
  }
  UnitCall Take() {
    const int32_t before = count;
    if (before == 0) return {UnitCall::Kind::kTake, false, -1};
    std::this_thread::yield();
    count = before - 1;
    return {UnitCall::Kind::kTake, true, -1};
  }
  UnitCall Reset() { return Take(); }
};

// Broken: a signal takes effect with the next operation of any thread.
struct LateEvent {
  static constexpr UnitModel kModel = {0, 1, true};
  std::mutex mutex;
  bool signalled = false;
  bool late = false;

  UnitCall Give() {
    const std::lock_guard guard(mutex);
    signalled = signalled || late;
    late = true;
    return {UnitCall::Kind::kGive, true, -1};
  }
  UnitCall Take() {
    const std::lock_guard guard(mutex);
    const bool taken = signalled;
    signalled = late;
    late = false;
    return {UnitCall::Kind::kTake, taken, -1};
  }
  UnitCall Reset() {
    const std::lock_guard guard(mutex);
    signalled = late = false;
    return {UnitCall::Kind::kReset, true, -1};
  }
};

template <typename Object>
UnitHistory RecordUnits(uint32_t seed) {
  Object object;
  return Record<UnitCall>(seed, [&](uint32_t, std::mt19937* random, auto record) {
    for (uint32_t i = 0; i < kOperationsOfThread; ++i) {
      const uint32_t choice = (*random)() % 16;
      record([&] {
        if (choice == 0) return object.Reset();
        return choice < 8 ? object.Give() : object.Take();
      });
    }
  });
}

template <typename Object>
void ExpectUnits() {
  for (uint32_t seed = 0; seed < Rounds(); ++seed) {
    ASSERT_TRUE(IsLinearizable(Object::kModel, RecordUnits<Object>(seed))) << "seed " << seed;
  }
}

template <typename Object>
bool IsRefused() {
  for (uint32_t seed = 0; seed < 1000; ++seed) {
    if (!IsLinearizable(Object::kModel, RecordUnits<Object>(seed))) return true;
  }
  return false;
}

TEST(SemaphoreHistories, AreLinearizable) { ExpectUnits<Semaphore>(); }
TEST(EventHistories, AreLinearizable) { ExpectUnits<Event>(); }
TEST(BrokenHistories, OfATornSemaphoreAreRefused) { EXPECT_TRUE(IsRefused<TornSemaphore>()); }
TEST(BrokenHistories, OfALateEventAreRefused) { EXPECT_TRUE(IsRefused<LateEvent>()); }

// ---- Locks and mutexes: a number that only the holder may change ----

// One operation takes the lock, reads the number, writes the next one and releases the lock. A reader
// only reads.
struct CounterCall {
  bool writes;
  uint64_t found;
};

struct CounterModel {
  using State = uint64_t;
  State initial = 0;

  std::optional<State> Next(const State& number, const CounterCall& call) const {
    if (call.found != number) return std::nullopt;
    return call.writes ? number + 1 : number;
  }
};

struct Spinlock {
  explicit Spinlock(uint8_t tickets) {
    KivSdSetHardwareAcceleration(tickets);
    lock = KivSdSpinlockCreate(nullptr, 0);
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 20;
  }
  ~Spinlock() {
    KivSdSpinlockDestroy(nullptr, lock);
    KivSdSetHardwareAcceleration(0);
  }
  void Enter(uint32_t thread, bool) { KivSdSpinlockAcquire(lock, thread + 1); }
  void Leave(uint32_t) { KivSdSpinlockRelease(lock); }
  KivSdSpinlock* lock;
};

struct LightSpinlock {
  explicit LightSpinlock(uint8_t tickets) {
    KivSdSetHardwareAcceleration(tickets);
    KivSdLWSpinlockInit(&lock);
  }
  ~LightSpinlock() {
    KivSdLWSpinlockDestroy(&lock);
    KivSdSetHardwareAcceleration(0);
  }
  void Enter(uint32_t, bool) { KivSdLWSpinlockAcquire(&lock); }
  void Leave(uint32_t) { KivSdLWSpinlockRelease(&lock); }
  KivSdLWSpinlock lock;
};

struct Mutex {
  explicit Mutex(uint8_t) { EXPECT_EQ(KivSdMutexCreate(nullptr, nullptr, &handle), KIV_ST_OK); }
  ~Mutex() { EXPECT_EQ(KivSdMutexClose(nullptr, &handle), KIV_ST_OK); }
  void Enter(uint32_t, bool) { KivSdMutexRequest(nullptr, &handle, UINT32_MAX); }
  void Leave(uint32_t) { KivSdMutexClear(nullptr, &handle); }
  KivHandle handle = nullptr;
};

struct ReaderWriterLock {
  explicit ReaderWriterLock(uint8_t blocking) { KivRWLockInit(nullptr, 0, &lock, blocking, 0); }
  ~ReaderWriterLock() {
    for (KivRWLockTable& table : tables) KivRWLockFreeQNodes(&table);
  }
  void Enter(uint32_t thread, bool writes) {
    (writes ? KivSdStartWrite : KivSdStartRead)(nullptr, &tables[thread], &lock);
  }
  void Leave(uint32_t thread) { KivSdEndRW(nullptr, &tables[thread], &lock); }
  KivRWLock lock;
  KivRWLockTable tables[kiv::linearizability::kThreads] = {};
};

// Broken: keeps nobody out.
struct OpenLock {
  explicit OpenLock(uint8_t) {}
  void Enter(uint32_t, bool) {}
  void Leave(uint32_t) { std::this_thread::yield(); }
};

template <typename Lock>
std::vector<Operation<CounterCall>> RecordCounter(uint32_t seed, uint8_t design) {
  Lock lock(design);
  std::atomic<uint64_t> number{0};  // atomic only for the broken lock
  const auto operate = [&](uint32_t thread, std::mt19937* random, auto record) {
    for (uint32_t i = 0; i < kOperationsOfThread; ++i) {
      const bool writes = (*random)() % 2 == 0;
      record([&] {
        lock.Enter(thread, writes);
        const uint64_t found = number.load(std::memory_order_relaxed);
        std::this_thread::yield();
        if (writes) number.store(found + 1, std::memory_order_relaxed);
        lock.Leave(thread);
        return CounterCall{writes, found};
      });
    }
  };
  return Record<CounterCall>(seed, operate);
}

template <typename Lock>
void ExpectCounter(uint8_t design) {
  for (uint32_t seed = 0; seed < Rounds(); ++seed) {
    ASSERT_TRUE(IsLinearizable(CounterModel{}, RecordCounter<Lock>(seed, design)))
        << "seed " << seed;
  }
}

TEST(SpinlockHistories, AreLinearizableInBothDesigns) {
  ExpectCounter<Spinlock>(0);
  ExpectCounter<Spinlock>(1);
}
TEST(LightSpinlockHistories, AreLinearizableInBothDesigns) {
  ExpectCounter<LightSpinlock>(0);
  ExpectCounter<LightSpinlock>(1);
}
TEST(MutexHistories, AreLinearizable) { ExpectCounter<Mutex>(0); }
TEST(ReaderWriterLockHistories, AreLinearizable) { ExpectCounter<ReaderWriterLock>(1); }
TEST(BrokenHistories, OfAnOpenLockAreRefused) {
  bool isRefused = false;
  for (uint32_t seed = 0; seed < 1000 && !isRefused; ++seed) {
    isRefused = !IsLinearizable(CounterModel{}, RecordCounter<OpenLock>(seed, 0));
  }
  EXPECT_TRUE(isRefused);
}

// ---- Segments: taking chunks, and messages through a chunk ----

struct ChunkCall {
  bool takes;
  int32_t chunk;  // KIV_CHUNK_NONE if none was free
};

// The chunks that are taken, one bit each.
struct ChunkModel {
  using State = uint32_t;
  State initial = 0;

  std::optional<State> Next(const State& taken, const ChunkCall& call) const {
    constexpr State kAll = (1u << KIV_SEGMENT_CHUNKS) - 1;
    if (call.chunk == KIV_CHUNK_NONE) return taken == kAll ? std::optional(taken) : std::nullopt;
    const State bit = 1u << call.chunk;
    if (((taken & bit) != 0) == call.takes) return std::nullopt;
    const bool isLowest = (~taken & (bit - 1)) == 0;
    return !call.takes || isLowest ? std::optional(taken ^ bit) : std::nullopt;
  }
};

// Each thread takes and returns chunks; together they want more than there are.
std::vector<Operation<ChunkCall>> RecordChunks(uint32_t seed) {
  const SegmentEnd segment(UniqueName("chunks"), 1);
  return Record<ChunkCall>(seed, [&](uint32_t, std::mt19937* random, auto record) {
    std::vector<int32_t> mine;
    for (uint32_t i = 0; i < kOperationsOfThread; ++i) {
      if (mine.empty() || (*random)() % 3 != 0) {
        const ChunkCall taken = record([&] {
          int32_t chunk = 0;
          EXPECT_EQ(KivGetSharedMemChunk(nullptr, segment, &chunk), KIV_ST_OK);
          return ChunkCall{true, chunk};
        });
        if (taken.chunk != KIV_CHUNK_NONE) mine.push_back(taken.chunk);
      } else {
        record([&] {
          EXPECT_EQ(KivPutSharedMemChunk(nullptr, segment, mine.back()), KIV_ST_OK);
          return ChunkCall{false, mine.back()};
        });
        mine.pop_back();
      }
    }
  });
}

TEST(ChunkHistories, AreLinearizable) {
  for (uint32_t seed = 0; seed < Rounds(); ++seed) {
    ASSERT_TRUE(IsLinearizable(ChunkModel{}, RecordChunks(seed))) << "seed " << seed;
  }
}

struct MessageCall {
  bool writes;
  uint32_t value;
};

// Messages in the order in which they were written.
struct QueueModel {
  using State = std::vector<uint32_t>;
  State initial;

  std::optional<State> Next(State queue, const MessageCall& call) const {
    if (call.writes) {
      queue.push_back(call.value);
      return queue;
    }
    if (queue.empty() || queue.front() != call.value) return std::nullopt;
    queue.erase(queue.begin());
    return queue;
  }
};

// The first thread writes at one end of a segment, the second reads at the other.
std::vector<Operation<MessageCall>> RecordMessages(uint32_t seed) {
  const std::string name = UniqueName("messages");
  const SegmentEnd server(name, 1);
  const SegmentEnd client(name, 0);
  return Record<MessageCall>(seed, [&](uint32_t thread, std::mt19937*, auto record) {
    for (uint32_t i = 0; i < kOperationsOfThread && thread < 2; ++i) {
      record([&] {
        MessageCall call = {thread == 0, i};
        if (call.writes) {
          EXPECT_EQ(KivWriteSharedMemChunk(nullptr, server, 0, sizeof i, 1, 1, &i), KIV_ST_OK);
        } else {
          uint32_t code = 0;
          EXPECT_EQ(KivReadSharedMemChunk(nullptr, client, 0, sizeof i, 0, &code, &call.value),
                    KIV_ST_OK);
        }
        return call;
      });
    }
  });
}

TEST(MessageHistories, AreLinearizable) {
  for (uint32_t seed = 0; seed < Rounds(); ++seed) {
    ASSERT_TRUE(IsLinearizable(QueueModel{}, RecordMessages(seed))) << "seed " << seed;
  }
}

// ---- The checker itself ----

TEST(Checker, AcceptsOverlappingOperationsInEitherOrder) {
  const UnitModel model = {0, 1, false};
  const UnitCall give = {UnitCall::Kind::kGive, true, -1};
  const UnitCall take = {UnitCall::Kind::kTake, true, -1};
  EXPECT_TRUE(IsLinearizable(model, UnitHistory{{take, 0, 3}, {give, 1, 2}}));
  EXPECT_TRUE(IsLinearizable(model, UnitHistory{{give, 0, 3}, {take, 1, 2}}));
}

TEST(Checker, RefusesAResultThatCameBeforeItsCause) {
  const UnitModel model = {0, 1, false};
  const UnitCall give = {UnitCall::Kind::kGive, true, -1};
  const UnitCall take = {UnitCall::Kind::kTake, true, -1};
  EXPECT_FALSE(IsLinearizable(model, UnitHistory{{take, 0, 1}, {give, 2, 3}}));
  EXPECT_FALSE(IsLinearizable(model, UnitHistory{{give, 0, 1}, {take, 2, 4}, {take, 3, 5}}));
}

}  // namespace
