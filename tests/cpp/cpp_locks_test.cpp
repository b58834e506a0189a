// Locks and kernel objects with the standard's guards.
#include <gtest/gtest.h>

#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.hpp"

namespace {

using kivsdu::ErrorCode;
using std::chrono::milliseconds;

constexpr int kThreads = 4;
constexpr int kRounds = 2000;

// Runs a body in several threads at once.
template <class Body>
void InThreads(Body body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; i++) threads.emplace_back(body);
  for (std::thread& thread : threads) thread.join();
}

// Counts in several threads under a lock.
template <class Lock>
int CountUnder(Lock& lock) {
  int count = 0;
  InThreads([&] {
    for (int i = 0; i < kRounds; i++) {
      std::lock_guard guard(lock);
      count = count + 1;
    }
  });
  return count;
}

TEST(Locks, GuardACounter) {
  kivsdu::LightweightSpinlock light;
  EXPECT_EQ(CountUnder(light), kThreads * kRounds);
  kivsdu::Spinlock spinlock;
  EXPECT_EQ(CountUnder(spinlock), kThreads * kRounds);
  kivsdu::CriticalSection section;
  EXPECT_EQ(CountUnder(section), kThreads * kRounds);
  kivsdu::Mutex mutex;
  EXPECT_EQ(CountUnder(mutex), kThreads * kRounds);
}

TEST(Locks, KnowTheirOwner) {
  kivsdu::LightweightSpinlock light;
  EXPECT_FALSE(light.IsOwner());
  std::unique_lock guard(light);
  EXPECT_TRUE(light.IsOwner());
  guard.unlock();
  EXPECT_FALSE(light.IsOwner());

  const uint32_t thread = kivsdu::ThisThreadId();
  kivsdu::Spinlock spinlock;
  const auto mine = spinlock.For(thread);
  EXPECT_FALSE(spinlock.IsOwner(thread));
  {
    std::lock_guard held(mine);
    EXPECT_TRUE(spinlock.IsOwner(thread));
  }
  EXPECT_FALSE(spinlock.IsOwner(thread));
}

TEST(ReaderWriterLock, IsTakenByTheStandardsGuards) {
  kivsdu::ReaderWriterLock lock;
  kivsdu::LockTable table;
  const auto mine = lock.With(table);
  {
    std::shared_lock reading(mine);
    EXPECT_EQ(mine.Mode(), KIV_RWLOCK_READ);
    ErrorCode error;
    mine.lock(error);  // a reader cannot write
    EXPECT_EQ(error.Status(), KIV_ST_MUTEX_REQUEST);
    EXPECT_THROW(mine.lock(), kivsdu::Failure);
  }
  EXPECT_EQ(mine.Mode(), KIV_RWLOCK_FREE);
  {
    std::unique_lock writing(mine);
    EXPECT_EQ(mine.Mode(), KIV_RWLOCK_WRITE);
  }
  EXPECT_EQ(mine.Mode(), KIV_RWLOCK_FREE);
}

TEST(ReaderWriterLock, ExcludesWriters) {
  kivsdu::ReaderWriterLock lock;
  int left = 0;
  int right = 0;
  InThreads([&] {
    kivsdu::LockTable table;
    const auto mine = lock.With(table);
    for (int i = 0; i < kRounds; i++) {
      if (i % 4 == 0) {
        std::lock_guard writing(mine);
        left = left + 1;
        right = right + 1;
      } else {
        std::shared_lock reading(mine);
        EXPECT_EQ(left, right);
      }
    }
  });
  EXPECT_EQ(left, kThreads * kRounds / 4);
}

TEST(Semaphore, CountsAndTimesOut) {
  kivsdu::Semaphore semaphore(nullptr, 1, 2);
  semaphore.acquire();
  EXPECT_FALSE(semaphore.try_acquire());
  EXPECT_FALSE(semaphore.try_acquire_for(milliseconds(-5)));
  semaphore.release(2);
  EXPECT_TRUE(semaphore.try_acquire());
  EXPECT_TRUE(semaphore.try_acquire_for(milliseconds(1)));

  ErrorCode error;
  semaphore.release(3, error);
  EXPECT_EQ(error.Status(), KIV_ST_SEM_OVERFLOW);
  EXPECT_THROW(semaphore.release(3), kivsdu::Failure);
  EXPECT_FALSE(semaphore.try_acquire_for(milliseconds(0), error));
  EXPECT_FALSE(error) << "a time-out is no error";
}

TEST(Semaphore, FailsForABadCount) {
  EXPECT_THROW(kivsdu::Semaphore(nullptr, 2, 1), kivsdu::Failure);
  ErrorCode error;
  kivsdu::Semaphore bad(nullptr, 2, 1, error);
  EXPECT_EQ(error.Status(), KIV_ST_SEM_CREATE);
  EXPECT_NE(error.OsError(), 0u);
}

TEST(Mutex, TimesOutWhileAnotherThreadOwnsIt) {
  kivsdu::Mutex mutex;
  std::lock_guard held(mutex);
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
  std::thread([&] {
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_FALSE(mutex.try_lock_for(milliseconds(1)));
  }).join();
}

TEST(Mutex, FailsOnceIfItsOwnerEnded) {
  kivsdu::Mutex mutex;
  std::thread([&] { mutex.lock(); }).join();
  ErrorCode error;
  EXPECT_FALSE(mutex.try_lock_for(milliseconds(1000), error));
  EXPECT_EQ(error.Status(), KIV_ST_MUTEX_REQUEST);
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
  std::thread([&] {
    EXPECT_TRUE(mutex.try_lock()) << "the failed call left the mutex taken";
    mutex.unlock();
  }).join();
}

TEST(Gate, LetsOneThreadPass) {
  kivsdu::Gate gate;
  gate.Pass();
  EXPECT_FALSE(gate.PassFor(milliseconds(1)));
  gate.Open();
  EXPECT_TRUE(gate.PassFor(milliseconds(0)));
  gate.Open();
  gate.Close();
  EXPECT_FALSE(gate.PassFor(milliseconds(0)));
}

TEST(Event, IsSignalledOnce) {
  kivsdu::Event event;
  EXPECT_FALSE(event.WaitFor(milliseconds(0)));
  event.Set();
  event.Wait();
  event.Set();
  event.Reset();
  EXPECT_FALSE(event.WaitFor(milliseconds(1)));
  std::thread signal([&] { event.Set(); });
  EXPECT_TRUE(event.WaitFor(milliseconds(30000)));
  signal.join();
}

TEST(Objects, MoveToAnotherOwner) {
  kivsdu::Event first;
  const KivHandle handle = *first.Get();
  kivsdu::Event second(std::move(first));
  EXPECT_EQ(*second.Get(), handle);
  EXPECT_EQ(*first.Get(), nullptr);
  second.Set();
  EXPECT_TRUE(second.WaitFor(milliseconds(0)));
}

}  // namespace
