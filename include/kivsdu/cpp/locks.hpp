// Locks inside a process, for std::lock_guard, std::unique_lock and std::shared_lock.
//
// The spinlocks cannot be tried and never fail. The reader-writer lock needs a table for each
// thread; the view that With returns is the lock of the standard's classes.
#ifndef KIVSDU_CPP_LOCKS_HPP
#define KIVSDU_CPP_LOCKS_HPP

#include <new>

#include "../mutex.h"
#include "../rwlock.h"
#include "../spinlock.h"
#include "../thread.h"
#include "error.hpp"

namespace kivsdu {

// The calling thread's identifier.
inline uint32_t ThisThreadId() noexcept {
  uint32_t id = 0;
  KivSdThreadIdGet(nullptr, &id);
  return id;
}

// ---- Spinlocks ----

// A lightweight spinlock. The owner may take it again.
class LightweightSpinlock {
 public:
  LightweightSpinlock() noexcept { KivSdLWSpinlockInit(&lock_); }
  LightweightSpinlock(const LightweightSpinlock&) = delete;
  LightweightSpinlock& operator=(const LightweightSpinlock&) = delete;
  ~LightweightSpinlock() { KivSdLWSpinlockDestroy(&lock_); }

  void lock() noexcept { KivSdLWSpinlockAcquire(&lock_); }
  void unlock() noexcept { KivSdLWSpinlockRelease(&lock_); }
  bool IsOwner() const noexcept { return KivSdLWSpinlockOwner(&lock_) != 0; }

  KivSdLWSpinlock* Get() noexcept { return &lock_; }

 private:
  KivSdLWSpinlock lock_;
};

// A spinlock on the heap. The owner may take it again.
class Spinlock {
 public:
  // The lock as one thread uses it: saves the query of the identifier in each call.
  class OfThread {
   public:
    void lock() const noexcept { KivSdSpinlockAcquire(lock_, thread_); }
    void unlock() const noexcept { KivSdSpinlockRelease(lock_); }

   private:
    friend class Spinlock;
    OfThread(KivSdSpinlock* lock, uint32_t thread) noexcept : lock_(lock), thread_(thread) {}

    KivSdSpinlock* lock_;
    uint32_t thread_;
  };

  // Throws std::bad_alloc if there is no memory.
  Spinlock() : lock_(KivSdSpinlockCreate(nullptr, 0)) {
    if (lock_ == nullptr) throw std::bad_alloc();
  }
  Spinlock(const Spinlock&) = delete;
  Spinlock& operator=(const Spinlock&) = delete;
  ~Spinlock() { KivSdSpinlockDestroy(nullptr, lock_); }

  void lock() noexcept { KivSdSpinlockAcquire(lock_, ThisThreadId()); }
  void unlock() noexcept { KivSdSpinlockRelease(lock_); }

  //   thread  the calling thread's identifier
  OfThread For(uint32_t thread) noexcept { return {lock_, thread}; }
  bool IsOwner(uint32_t thread) const noexcept { return KivSdSpinlockOwner(lock_, thread) != 0; }

  KivSdSpinlock* Get() const noexcept { return lock_; }

 private:
  KivSdSpinlock* lock_;
};

// ---- The reader-writer lock ----

// A thread's nodes of reader-writer locks. Make one in each thread; it must outlive every lock that
// the thread holds.
class LockTable {
 public:
  LockTable() = default;
  LockTable(const LockTable&) = delete;
  LockTable& operator=(const LockTable&) = delete;
  ~LockTable() { KivRWLockFreeQNodes(&table_); }

  KivRWLockTable* Get() noexcept { return &table_; }

 private:
  KivRWLockTable table_ = {};
};

class ReaderWriterLock {
 public:
  // What a waiter does after it has spun: sleep in the kernel, or go on spinning.
  enum class Waiting : uint8_t { kSpins = 0, kMaySleep = 1 };

  // The lock as one thread uses it. Taking it throws a Failure if there is no memory, or if a
  // reader asks to write.
  class OfThread {
   public:
    void lock() const { ThrowIfFailed(Start(KivSdStartWrite), "take a lock for writing"); }
    void lock_shared() const { ThrowIfFailed(Start(KivSdStartRead), "take a lock for reading"); }
    void lock(ErrorCode& error) const noexcept { error = Start(KivSdStartWrite); }
    void lock_shared(ErrorCode& error) const noexcept { error = Start(KivSdStartRead); }
    void unlock() const noexcept { KivSdEndRW(nullptr, table_, lock_); }
    void unlock_shared() const noexcept { unlock(); }

    // KIV_RWLOCK_FREE, KIV_RWLOCK_READ or KIV_RWLOCK_WRITE.
    uint32_t Mode() const noexcept { return KivSdModeRW(nullptr, table_, lock_); }

   private:
    friend class ReaderWriterLock;
    using Operation = uint32_t (*)(void*, KivRWLockTable*, KivRWLock*);

    OfThread(KivRWLockTable* table, KivRWLock* lock) noexcept : table_(table), lock_(lock) {}

    ErrorCode Start(Operation operation) const noexcept {
      return {operation(nullptr, table_, lock_), 0, OsErrorKind::kRuntime};
    }

    KivRWLockTable* table_;
    KivRWLock* lock_;
  };

  //   slot  0 to KIV_RWLOCK_SLOTS - 1: the list of each table that holds the lock's nodes
  explicit ReaderWriterLock(Waiting waiting = Waiting::kMaySleep, int32_t slot = 0) noexcept {
    KivRWLockInit(nullptr, 0, &lock_, static_cast<uint8_t>(waiting), slot);
  }
  ReaderWriterLock(const ReaderWriterLock&) = delete;
  ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;

  //   table  the calling thread's
  OfThread With(LockTable& table) noexcept { return {table.Get(), &lock_}; }
  OfThread With(KivRWLockTable* table) noexcept { return {table, &lock_}; }

  KivRWLock* Get() noexcept { return &lock_; }

 private:
  KivRWLock lock_;
};

// ---- Critical sections ----

// A mutex of this process. The owner may take it again.
class CriticalSection {
 public:
  CriticalSection() noexcept { KivSdCritSecInit(nullptr, &section_); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;
  ~CriticalSection() { KivSdCritSecDelete(nullptr, &section_); }

  void lock() noexcept { KivSdCritSecEnter(nullptr, &section_); }
  void unlock() noexcept { KivSdCritSecExit(nullptr, &section_); }

  KivSdCritSec* Get() noexcept { return &section_; }

 private:
  KivSdCritSec section_;
};

}  // namespace kivsdu

#endif
