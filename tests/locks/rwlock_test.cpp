// The reader-writer lock: order of entry, mode and ownership per thread, and the life of nodes.
//
// The tests control the order of arrival by watching the lock's own fields: a test continues only
// after these fields show that a thread is queued.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "sdrwlock/node.h"
#include "support/block_count.h"
#include "support/threads.h"
#include "support/waiting.h"

namespace {

using kiv::test::BlockCount;
using kiv::test::kLimitMs;
using kiv::test::OnAnotherThread;
using kiv::test::OnThreads;
using kiv::test::Stopwatch;

constexpr uint64_t kWriterInterested = 1;
constexpr uint64_t kWriterActive = 2;
constexpr uint64_t kWriters = kWriterInterested | kWriterActive;
constexpr uint64_t kReaderInterested = 4;
constexpr uint64_t kReader = 8;

// How threads wait for a lock.
struct Waiting {
  const char* name;
  uint8_t blockingAllowed;
  int32_t spinLoops;
  int32_t spinYields;
  int32_t waitLoops;
  uint32_t mostThreads;  // more would starve each other on a small machine
};

const Waiting kSpinsThenSleeps = {"SpinsThenSleeps", 1, 1, 0, 1, 16};
const Waiting kSleepsAtOnce = {"SleepsAtOnce", 1, 0, 0, 1, 16};
const Waiting kYieldsThenSleeps = {"YieldsThenSleeps", 1, 0, 8, 6, 16};
const Waiting kNeverSleeps = {"NeverSleeps", 1, 0, 4, 0, 16};
const Waiting kLimitBelowZeroNeverSleeps = {"LimitBelowZeroNeverSleeps", 1, 1, 1, -5, 4};
const Waiting kSpinsOnly = {"SpinsOnly", 0, 1, 0, 1, 2};

const Waiting kWaitings[] = {kSpinsThenSleeps,           kSleepsAtOnce,
                             kYieldsThenSleeps,          kNeverSleeps,
                             kLimitBelowZeroNeverSleeps, kSpinsOnly};

void Init(KivRWLock* lock, const Waiting& waiting, int32_t slot = 0) {
  ASSERT_EQ(KivRWLockInit(nullptr, 0, lock, waiting.blockingAllowed, slot), KIV_ST_OK);
  lock->readerSpinLoops = lock->writerSpinLoops = waiting.spinLoops;
  lock->readerSpinYields = lock->writerSpinYields = waiting.spinYields;
  lock->readerWaitLoops = lock->writerWaitLoops = waiting.waitLoops;
}

uint64_t Word(const KivRWLock& lock) {
  return __atomic_load_n(&lock.countAndFlags, __ATOMIC_SEQ_CST);
}

KivRWLockNode* ReaderTail(const KivRWLock& lock) {
  return __atomic_load_n(&lock.readerTail, __ATOMIC_SEQ_CST);
}

KivRWLockNode* WriterTail(const KivRWLock& lock) {
  return __atomic_load_n(&lock.writerTail, __ATOMIC_SEQ_CST);
}

void ExpectFree(const KivRWLock& lock) {
  EXPECT_EQ(Word(lock), 0u);
  EXPECT_EQ(ReaderTail(lock), nullptr);
  EXPECT_EQ(WriterTail(lock), nullptr);
}

// Waits until another thread makes the condition true; fails after kLimitMs.
template <typename Condition>
void Await(const char* what, Condition holds) {
  const Stopwatch watch;
  while (!holds()) {
    if (watch.ElapsedMs() > kLimitMs) {
      ADD_FAILURE() << "waited too long for " << what;
      return;
    }
    std::this_thread::yield();
  }
}
#define AWAIT(...) Await(#__VA_ARGS__, [&] { return __VA_ARGS__; })

uint32_t Start(KivRWLockTable* table, KivRWLock* lock, uint32_t mode) {
  return mode == KIV_RWLOCK_WRITE ? KivSdStartWrite(nullptr, table, lock)
                                  : KivSdStartRead(nullptr, table, lock);
}

constexpr uint32_t kNotYet = UINT32_MAX;

// A thread that takes the lock, draws a number inside, and releases the lock on Leave.
class Visitor {
 public:
  Visitor(KivRWLock* lock, uint32_t mode, std::atomic<uint32_t>* numbers)
      : thread_([this, lock, mode, numbers] { Visit(lock, mode, numbers); }) {}
  ~Visitor() { Leave(); }
  Visitor(const Visitor&) = delete;
  Visitor& operator=(const Visitor&) = delete;

  bool IsInside() const { return number_.load() != kNotYet; }

  // Position in the order of entry, from 0.
  uint32_t number() const { return number_.load(); }

  // Lets the thread leave once it is inside, and joins it.
  void Leave() {
    mayLeave_.store(true);
    if (thread_.joinable()) thread_.join();
  }

 private:
  void Visit(KivRWLock* lock, uint32_t mode, std::atomic<uint32_t>* numbers) {
    KivRWLockTable table{};
    EXPECT_EQ(Start(&table, lock, mode), KIV_ST_OK);
    EXPECT_EQ(KivSdModeRW(nullptr, &table, lock), mode);
    number_.store(numbers->fetch_add(1));
    while (!mayLeave_.load()) std::this_thread::yield();
    EXPECT_EQ(KivSdEndRW(nullptr, &table, lock), KIV_ST_OK);
    EXPECT_EQ(KivRWLockFreeQNodes(&table), KIV_ST_OK);
  }

  std::atomic<uint32_t> number_{kNotYet};
  std::atomic<bool> mayLeave_{false};
  std::thread thread_;
};

class RWLock : public testing::Test {
 protected:
  void SetUp() override { Init(&lock_, kSleepsAtOnce); }

  void TearDown() override {
    ExpectFree(lock_);
    EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  }

  uint32_t StartRead() { return KivSdStartRead(nullptr, &table_, &lock_); }
  uint32_t StartWrite() { return KivSdStartWrite(nullptr, &table_, &lock_); }
  uint32_t End() { return KivSdEndRW(nullptr, &table_, &lock_); }

  void ExpectMode(uint32_t mode) {
    EXPECT_EQ(KivSdModeRW(nullptr, &table_, &lock_), mode);
    EXPECT_EQ(KivSdOwnerRW(nullptr, &table_, &lock_), mode == KIV_RWLOCK_FREE ? 0 : 1);
  }

  std::unique_ptr<Visitor> Send(uint32_t mode) {
    return std::make_unique<Visitor>(&lock_, mode, &numbers_);
  }

  // Returns a writer that is queued: linked to the writer before it, or waiting for readers.
  std::unique_ptr<Visitor> QueueWriter() {
    const KivRWLockNode* before = WriterTail(lock_);
    auto writer = Send(KIV_RWLOCK_WRITE);
    if (before == nullptr) {
      AWAIT((Word(lock_) & kWriters) == kWriters);
    } else {
      AWAIT(before->queueLink.load() != nullptr);
    }
    return writer;
  }

  // Returns a reader that is queued while a writer waits or is inside.
  std::unique_ptr<Visitor> QueueReader() {
    const KivRWLockNode* before = ReaderTail(lock_);
    auto reader = Send(KIV_RWLOCK_READ);
    AWAIT(ReaderTail(lock_) != before && (Word(lock_) & kReaderInterested) != 0);
    return reader;
  }

  KivRWLock lock_;
  KivRWLockTable table_{};
  std::atomic<uint32_t> numbers_{0};
};

// ---- One thread ----

TEST_F(RWLock, IsFreeWhenMadeAndHasTheLimitsOfTheProcess) {
  std::memset(&lock_, 0xEE, sizeof(lock_));
  ASSERT_EQ(KivRWLockInit(&lock_, -42, &lock_, 3, 6), KIV_ST_OK);
  ExpectFree(lock_);
  EXPECT_EQ(lock_.writerHead, nullptr);
  EXPECT_EQ(lock_.readerSpinLoops, 1);
  EXPECT_EQ(lock_.writerSpinLoops, 1);
  EXPECT_EQ(lock_.readerSpinYields, 0);
  EXPECT_EQ(lock_.writerSpinYields, 0);
  EXPECT_EQ(lock_.readerWaitLoops, 1);
  EXPECT_EQ(lock_.writerWaitLoops, 1);
  EXPECT_EQ(lock_.callerValue, -42);
  EXPECT_EQ(lock_.blockingAllowed, 3);
  EXPECT_EQ(lock_.slot, 6);
}

TEST_F(RWLock, IsHeldForReadingUntilTheLastEnd) {
  ExpectMode(KIV_RWLOCK_FREE);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(StartRead(), KIV_ST_OK);
    ExpectMode(KIV_RWLOCK_READ);
    EXPECT_EQ(Word(lock_), kReader);
  }
  for (int i = 0; i < 3; ++i) {
    ExpectMode(KIV_RWLOCK_READ);
    EXPECT_EQ(Word(lock_), kReader);
    EXPECT_EQ(End(), KIV_ST_OK);
  }
  ExpectMode(KIV_RWLOCK_FREE);
  EXPECT_EQ(End(), KIV_ST_MUTEX_CLEAR);
}

TEST_F(RWLock, IsHeldForWritingUntilTheLastEnd) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(StartWrite(), KIV_ST_OK);
    ExpectMode(KIV_RWLOCK_WRITE);
    EXPECT_EQ(Word(lock_), kWriters);
  }
  for (int i = 0; i < 3; ++i) {
    ExpectMode(KIV_RWLOCK_WRITE);
    EXPECT_EQ(Word(lock_), kWriters);
    EXPECT_EQ(End(), KIV_ST_OK);
  }
  ExpectMode(KIV_RWLOCK_FREE);
  EXPECT_EQ(End(), KIV_ST_MUTEX_CLEAR);
}

TEST_F(RWLock, StaysHeldForWritingWhenItsWriterAlsoReads) {
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  for (int i = 0; i < 3; ++i) {
    ExpectMode(KIV_RWLOCK_WRITE);
    EXPECT_EQ(Word(lock_), kWriters);
    EXPECT_EQ(End(), KIV_ST_OK);
  }
  ExpectMode(KIV_RWLOCK_FREE);
}

TEST_F(RWLock, IsNotUpgradedAndStaysHeldForReading) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  EXPECT_EQ(StartWrite(), KIV_ST_MUTEX_REQUEST);
  ExpectMode(KIV_RWLOCK_READ);
  EXPECT_EQ(Word(lock_), kReader);
  EXPECT_EQ(WriterTail(lock_), nullptr);
  EXPECT_EQ(End(), KIV_ST_OK);
  EXPECT_EQ(End(), KIV_ST_MUTEX_CLEAR);
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  EXPECT_EQ(End(), KIV_ST_OK);
}

TEST_F(RWLock, CannotBeReleasedByAThreadThatDoesNotHoldIt) {
  EXPECT_EQ(End(), KIV_ST_MUTEX_CLEAR);
  EXPECT_EQ(table_.active, nullptr);
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  EXPECT_EQ(OnAnotherThread([this] {
              KivRWLockTable other{};
              return KivSdEndRW(nullptr, &other, &lock_);
            }),
            KIV_ST_MUTEX_CLEAR);
  EXPECT_EQ(Word(lock_), kReader);
  EXPECT_EQ(End(), KIV_ST_OK);
}

TEST_F(RWLock, IsOwnedByTheThreadWhoseTableHoldsItsNode) {
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  const KivRWLockTable other{};
  EXPECT_EQ(KivSdOwnerRW(nullptr, &other, &lock_), 0);
  EXPECT_EQ(KivSdModeRW(nullptr, &other, &lock_), KIV_RWLOCK_FREE);
  EXPECT_EQ(End(), KIV_ST_OK);
}

// ---- Nodes ----

TEST_F(RWLock, CopiesItsLimitsIntoEachNewNode) {
  lock_.readerSpinLoops = 11;
  lock_.writerSpinLoops = 12;
  lock_.readerSpinYields = 13;
  lock_.writerSpinYields = 14;
  lock_.readerWaitLoops = 15;
  lock_.writerWaitLoops = 16;
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  lock_.readerSpinLoops = 99;
  lock_.writerWaitLoops = 99;
  const KivRWLockNode* node = WriterTail(lock_);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->readerSpinLoops, 11);
  EXPECT_EQ(node->writerSpinLoops, 12);
  EXPECT_EQ(node->readerSpinYields, 13);
  EXPECT_EQ(node->writerSpinYields, 14);
  EXPECT_EQ(node->readerWaitLoops, 15);
  EXPECT_EQ(node->writerWaitLoops, 16);
  EXPECT_EQ(node->lock, &lock_);
  EXPECT_EQ(End(), KIV_ST_OK);
}

TEST_F(RWLock, ReusesOneNodePerThread) {
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  KivRWLockNode* node = WriterTail(lock_);
  EXPECT_EQ(table_.active[0], node);
  EXPECT_EQ(End(), KIV_ST_OK);
  EXPECT_EQ(table_.active[0], nullptr);
  EXPECT_EQ(table_.free[0], node);
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  EXPECT_EQ(table_.active[0], node);
  EXPECT_EQ(table_.free[0], nullptr);
  EXPECT_EQ(End(), KIV_ST_OK);
}

TEST_F(RWLock, AllocatesNothingAfterAThreadHasHeldItOnce) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  EXPECT_EQ(End(), KIV_ST_OK);
  const BlockCount count;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(Start(&table_, &lock_, i % 3 == 0 ? KIV_RWLOCK_WRITE : KIV_RWLOCK_READ), KIV_ST_OK);
    EXPECT_EQ(StartRead(), KIV_ST_OK);
    EXPECT_EQ(End(), KIV_ST_OK);
    EXPECT_EQ(End(), KIV_ST_OK);
  }
  EXPECT_EQ(count.allocated(), 0u);
  EXPECT_EQ(count.freed(), 0u);
}

TEST_F(RWLock, FreeQNodesFreesTheTableAndAllNodes) {
  const BlockCount count;
  KivRWLock locks[4];
  for (int32_t i = 0; i < 4; ++i) Init(&locks[i], kSleepsAtOnce, i % 2);
  for (KivRWLock& lock : locks) EXPECT_EQ(KivSdStartRead(nullptr, &table_, &lock), KIV_ST_OK);
  for (KivRWLock& lock : locks) EXPECT_EQ(KivSdEndRW(nullptr, &table_, &lock), KIV_ST_OK);
  EXPECT_EQ(count.allocated(), 6u) << "a node a lock, and two lists";
  EXPECT_EQ(count.freed(), 0u);
  EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  EXPECT_EQ(count.freed(), 6u);
  EXPECT_EQ(table_.active, nullptr);
  EXPECT_EQ(table_.free, nullptr);
  EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  EXPECT_EQ(count.freed(), 6u);
  EXPECT_EQ(StartRead(), KIV_ST_OK) << "the table serves anew";
  EXPECT_EQ(End(), KIV_ST_OK);
}

TEST_F(RWLock, FreeQNodesAlsoFreesNodesOfHeldLocks) {
  KivRWLock locks[3];
  for (KivRWLock& lock : locks) Init(&lock, kSleepsAtOnce, 2);
  const BlockCount count;
  for (KivRWLock& lock : locks) EXPECT_EQ(KivSdStartRead(nullptr, &table_, &lock), KIV_ST_OK);
  EXPECT_EQ(count.allocated(), 4u) << "a node a lock, and a list";
  EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  EXPECT_EQ(count.freed(), 4u);
  EXPECT_EQ(table_.active, nullptr);
  EXPECT_EQ(KivSdEndRW(nullptr, &table_, &locks[0]), KIV_ST_MUTEX_CLEAR);
}

TEST_F(RWLock, AddsANodeInFrontOfItsSlot) {
  KivRWLock locks[3];
  for (KivRWLock& lock : locks) Init(&lock, kSleepsAtOnce, 4);
  for (KivRWLock& lock : locks) {
    EXPECT_EQ(KivSdStartRead(nullptr, &table_, &lock), KIV_ST_OK);
    EXPECT_EQ(table_.active[4]->lock, &lock);
  }
  for (KivRWLock* lock : {&locks[1], &locks[0], &locks[2]}) {
    EXPECT_EQ(KivSdEndRW(nullptr, &table_, lock), KIV_ST_OK);
    EXPECT_EQ(table_.free[4]->lock, lock);
  }
  EXPECT_EQ(table_.active[4], nullptr);
  for (uint32_t slot = 0; slot < KIV_RWLOCK_SLOTS; ++slot) {
    EXPECT_EQ(table_.free[slot] != nullptr, slot == 4) << "slot " << slot;
  }
}

TEST_F(RWLock, CountsReadersInTheLowHalfOfItsWordOnly) {
  constexpr uint64_t kFull = 0x0000'0007'FFFF'FFF8;  // one more reader wraps the low half
  lock_.countAndFlags = kFull;
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  EXPECT_EQ(Word(lock_), 0x0000'0007'0000'0000u);
  EXPECT_EQ(End(), KIV_ST_OK);
  EXPECT_EQ(Word(lock_), kFull);
  lock_.countAndFlags = 0;
}

TEST_F(RWLock, NodesOfOtherLocksInAllSlotsAreKeptApart) {
  KivRWLock locks[2 * KIV_RWLOCK_SLOTS];
  constexpr int32_t kCount = 2 * KIV_RWLOCK_SLOTS;
  const auto modeOf = [](int32_t i) { return i % 3 == 0 ? KIV_RWLOCK_WRITE : KIV_RWLOCK_READ; };
  for (int32_t i = 0; i < kCount; ++i) {
    Init(&locks[i], kSleepsAtOnce, i % static_cast<int32_t>(KIV_RWLOCK_SLOTS));
  }
  for (int round = 0; round < 2; ++round) {
    for (int32_t i = 0; i < kCount; ++i) {
      EXPECT_EQ(Start(&table_, &locks[i], modeOf(i)), KIV_ST_OK);
    }
    // Nodes in the middle of the lists first.
    for (int32_t i = 0; i < kCount; ++i) {
      KivRWLock& lock = locks[(i + 5) % kCount];
      EXPECT_EQ(KivSdModeRW(nullptr, &table_, &lock), modeOf((i + 5) % kCount));
      EXPECT_EQ(KivSdEndRW(nullptr, &table_, &lock), KIV_ST_OK);
      EXPECT_EQ(KivSdModeRW(nullptr, &table_, &lock), KIV_RWLOCK_FREE);
      EXPECT_EQ(KivSdEndRW(nullptr, &table_, &lock), KIV_ST_MUTEX_CLEAR);
    }
    for (const KivRWLock& lock : locks) ExpectFree(lock);
  }
}

// Once each thread has used the lock, contention needs no further memory.
TEST_F(RWLock, AllocatesNothingWhenWarmedUpThreadsContend) {
  constexpr uint32_t kThreads = 4;
  KivRWLockTable tables[kThreads]{};
  for (KivRWLockTable& table : tables) {
    EXPECT_EQ(KivSdStartRead(nullptr, &table, &lock_), KIV_ST_OK);
    EXPECT_EQ(KivSdEndRW(nullptr, &table, &lock_), KIV_ST_OK);
  }
  uint32_t written = 0;  // guarded by the lock
  const BlockCount count;
  OnThreads(kThreads, [&](uint32_t number) {
    for (uint32_t round = 0; round < 200; ++round) {
      const uint32_t mode = (round + number) % 2 == 0 ? KIV_RWLOCK_WRITE : KIV_RWLOCK_READ;
      EXPECT_EQ(Start(&tables[number], &lock_, mode), KIV_ST_OK);
      if (mode == KIV_RWLOCK_WRITE) ++written;
      EXPECT_EQ(KivSdEndRW(nullptr, &tables[number], &lock_), KIV_ST_OK);
    }
  });
  EXPECT_EQ(written, kThreads * 100);
  EXPECT_EQ(count.allocated(), 0u);
  EXPECT_EQ(count.freed(), 0u);
  for (KivRWLockTable& table : tables) EXPECT_EQ(KivRWLockFreeQNodes(&table), KIV_ST_OK);
}

// ---- Order of entering ----

TEST_F(RWLock, IsSharedByReaders) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  const auto one = Send(KIV_RWLOCK_READ);
  const auto two = Send(KIV_RWLOCK_READ);
  AWAIT(one->IsInside() && two->IsInside());
  EXPECT_EQ(Word(lock_), 3 * kReader);
  EXPECT_EQ(End(), KIV_ST_OK);
  one->Leave();
  two->Leave();
}

TEST_F(RWLock, LetsAWriterInWhenTheLastReaderLeaves) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  const auto reader = Send(KIV_RWLOCK_READ);
  AWAIT(reader->IsInside());
  const auto writer = QueueWriter();
  reader->Leave();
  EXPECT_EQ(Word(lock_), kReader | kWriters);
  EXPECT_FALSE(writer->IsInside());
  EXPECT_EQ(End(), KIV_ST_OK);
  AWAIT(writer->IsInside());
  EXPECT_EQ(Word(lock_), kWriters);
  writer->Leave();
}

TEST_F(RWLock, AReaderQueuesBehindAWaitingWriter) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  const auto writer = QueueWriter();
  const auto reader = QueueReader();
  EXPECT_EQ(Word(lock_), kReader | kReaderInterested | kWriters);
  EXPECT_FALSE(reader->IsInside());
  EXPECT_EQ(End(), KIV_ST_OK);
  AWAIT(writer->IsInside());
  EXPECT_FALSE(reader->IsInside());
  EXPECT_EQ(Word(lock_), kReaderInterested | kWriters);
  writer->Leave();
  AWAIT(reader->IsInside());
  EXPECT_EQ(Word(lock_), kReader);
  EXPECT_EQ(writer->number(), 0u);
  EXPECT_EQ(reader->number(), 1u);
  reader->Leave();
}

TEST_F(RWLock, AReaderMayReadAgainWhileAWriterWaits) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  const auto writer = QueueWriter();
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  EXPECT_EQ(End(), KIV_ST_OK);
  EXPECT_FALSE(writer->IsInside());
  EXPECT_EQ(End(), KIV_ST_OK);
  AWAIT(writer->IsInside());
  writer->Leave();
}

TEST_F(RWLock, ReadersBehindAWriterEnterTogether) {
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  std::vector<std::unique_ptr<Visitor>> readers;
  for (int i = 0; i < 4; ++i) readers.push_back(QueueReader());
  EXPECT_EQ(Word(lock_), kReaderInterested | kWriters);
  EXPECT_EQ(numbers_.load(), 0u);
  EXPECT_EQ(End(), KIV_ST_OK);
  // No reader has left when the last one enters.
  for (const auto& reader : readers) AWAIT(reader->IsInside());
  EXPECT_EQ(Word(lock_), 4 * kReader);
  EXPECT_EQ(ReaderTail(lock_), nullptr);
  for (const auto& reader : readers) reader->Leave();
}

TEST_F(RWLock, ReadersBehindAWaitingWriterEnterTogetherAfterIt) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  const auto writer = QueueWriter();
  std::vector<std::unique_ptr<Visitor>> readers;
  for (int i = 0; i < 3; ++i) readers.push_back(QueueReader());
  EXPECT_EQ(Word(lock_), kReader | kReaderInterested | kWriters);
  EXPECT_EQ(numbers_.load(), 0u);
  EXPECT_EQ(End(), KIV_ST_OK);
  AWAIT(writer->IsInside());
  EXPECT_EQ(numbers_.load(), 1u);
  writer->Leave();
  // No reader has left when the last one enters.
  for (const auto& reader : readers) AWAIT(reader->IsInside());
  EXPECT_EQ(Word(lock_), 3 * kReader);
  for (const auto& reader : readers) reader->Leave();
}

TEST_F(RWLock, PassesFromWriterToWriterBeforeReadersThatArrivedBetween) {
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  const auto readerOne = QueueReader();
  const auto writerOne = QueueWriter();
  const auto readerTwo = QueueReader();
  const auto writerTwo = QueueWriter();
  EXPECT_EQ(End(), KIV_ST_OK);
  AWAIT(writerOne->IsInside());
  EXPECT_EQ(Word(lock_), kReaderInterested | kWriters);
  writerOne->Leave();
  AWAIT(writerTwo->IsInside());
  EXPECT_EQ(Word(lock_), kReaderInterested | kWriters);
  EXPECT_EQ(numbers_.load(), 2u);
  writerTwo->Leave();
  AWAIT(readerOne->IsInside() && readerTwo->IsInside());
  EXPECT_EQ(writerOne->number(), 0u);
  EXPECT_EQ(writerTwo->number(), 1u);
  EXPECT_EQ(Word(lock_), 2 * kReader);
  readerOne->Leave();
  readerTwo->Leave();
}

TEST_F(RWLock, AdmitsWritersInOrderOfArrival) {
  EXPECT_EQ(StartRead(), KIV_ST_OK);
  std::vector<std::unique_ptr<Visitor>> writers;
  for (int i = 0; i < 6; ++i) writers.push_back(QueueWriter());
  EXPECT_EQ(End(), KIV_ST_OK);
  for (uint32_t i = 0; i < writers.size(); ++i) {
    AWAIT(writers[i]->IsInside());
    EXPECT_EQ(writers[i]->number(), i);
    EXPECT_EQ(numbers_.load(), i + 1);
    writers[i]->Leave();
  }
}

TEST_F(RWLock, AWriterThatComesWhileABatchIsInsideWaitsForItsLastReader) {
  EXPECT_EQ(StartWrite(), KIV_ST_OK);
  const auto readerOne = QueueReader();
  const auto readerTwo = QueueReader();
  EXPECT_EQ(End(), KIV_ST_OK);
  AWAIT(readerOne->IsInside() && readerTwo->IsInside());
  const auto writer = QueueWriter();
  readerOne->Leave();
  EXPECT_EQ(Word(lock_), kReader | kWriters);
  readerTwo->Leave();
  AWAIT(writer->IsInside());
  writer->Leave();
}

// ---- Every kind of waiting ----

class RWLockWaiting : public testing::TestWithParam<Waiting> {
 protected:
  void SetUp() override { Init(&lock_, GetParam()); }
  void TearDown() override { ExpectFree(lock_); }

  KivRWLock lock_;
};

// Each kind of waiter behind each kind of holder.
TEST_P(RWLockWaiting, EndsWhenTheLockIsReleased) {
  std::atomic<uint32_t> numbers{0};
  for (const uint32_t held : {KIV_RWLOCK_READ, KIV_RWLOCK_WRITE}) {
    for (const uint32_t wanted : {KIV_RWLOCK_READ, KIV_RWLOCK_WRITE}) {
      if (held == KIV_RWLOCK_READ && wanted == KIV_RWLOCK_READ) continue;
      KivRWLockTable table{};
      ASSERT_EQ(Start(&table, &lock_, held), KIV_ST_OK);
      const uint64_t before = Word(lock_);
      const KivRWLockNode* tail = WriterTail(lock_);
      Visitor visitor(&lock_, wanted, &numbers);
      AWAIT(Word(lock_) != before || WriterTail(lock_) != tail);
      EXPECT_FALSE(visitor.IsInside());
      EXPECT_EQ(KivSdEndRW(nullptr, &table, &lock_), KIV_ST_OK);
      visitor.Leave();
      EXPECT_TRUE(visitor.IsInside());
      EXPECT_EQ(KivRWLockFreeQNodes(&table), KIV_ST_OK);
    }
  }
}

// Two counters that writers keep equal.
struct Pair {
  uint64_t one = 0;
  uint64_t other = 0;
};

class Stress {
 public:
  Stress(KivRWLock* lock, uint32_t rounds) : lock_(lock), rounds_(rounds) {}

  void Run(uint32_t number) {
    std::minstd_rand random(number + 1);
    KivRWLockTable table{};
    for (uint32_t round = 0; round < rounds_; ++round) {
      if (random() % 3 == 0) {
        Write(&table);
      } else {
        Read(&table, random() % 4 == 0);
      }
      // A thread may free its nodes as soon as it has left, even if its waker is not done yet.
      if (random() % 8 == 0) Check(KivRWLockFreeQNodes(&table) == KIV_ST_OK);
    }
    Check(KivRWLockFreeQNodes(&table) == KIV_ST_OK);
  }

  uint32_t failures() const { return failures_.load(); }
  uint64_t writes() const { return writes_.load(); }
  const Pair& pair() const { return pair_; }

 private:
  void Check(bool holds) {
    if (!holds) failures_.fetch_add(1, std::memory_order_relaxed);
  }

  void Write(KivRWLockTable* table) {
    Check(KivSdStartWrite(nullptr, table, lock_) == KIV_ST_OK);
    Check(KivSdStartRead(nullptr, table, lock_) == KIV_ST_OK);
    const uint64_t value = ++pair_.one;
    Check(pair_.other + 1 == value);
    pair_.other = value;
    Check(KivSdEndRW(nullptr, table, lock_) == KIV_ST_OK);
    Check(KivSdEndRW(nullptr, table, lock_) == KIV_ST_OK);
    writes_.fetch_add(1, std::memory_order_relaxed);
  }

  void Read(KivRWLockTable* table, bool slow) {
    Check(KivSdStartRead(nullptr, table, lock_) == KIV_ST_OK);
    const uint64_t value = pair_.one;
    if (slow) std::this_thread::yield();
    Check(pair_.other == value);
    Check(KivSdStartWrite(nullptr, table, lock_) == KIV_ST_MUTEX_REQUEST);
    Check(KivSdEndRW(nullptr, table, lock_) == KIV_ST_OK);
  }

  KivRWLock* lock_;
  const uint32_t rounds_;
  Pair pair_;
  std::atomic<uint32_t> failures_{0};
  std::atomic<uint64_t> writes_{0};
};

TEST_P(RWLockWaiting, KeepsWritersExclusiveAmongManyThreads) {
  for (const uint32_t threads : {2u, 4u, 8u, 16u}) {
    if (threads > GetParam().mostThreads) break;
    SCOPED_TRACE(threads);
    Stress stress(&lock_, GetParam().blockingAllowed != 0 ? 1200 / threads : 100);
    OnThreads(threads, [&](uint32_t number) { stress.Run(number); });
    EXPECT_EQ(stress.failures(), 0u);
    EXPECT_EQ(stress.pair().one, stress.writes());
    EXPECT_EQ(stress.pair().other, stress.writes());
    ExpectFree(lock_);
  }
}

INSTANTIATE_TEST_SUITE_P(Limits, RWLockWaiting, testing::ValuesIn(kWaitings),
                         [](const auto& parameter) { return parameter.param.name; });

}  // namespace
