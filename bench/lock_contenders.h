// The locks that are measured against each other, in one form:
//
//   Lock lock;                     made free
//   Lock::Session session(&lock);  one thread's part in it
//   session.Enter(); Leave();      alone
//   session.EnterRead(); ...       together with other readers, where the lock knows them
//
// The design of the library's spinlocks is the process's, and may change only while there is no
// lock: a contender sets its own as it is made, and there is one contender at a time.
#ifndef KIV_BENCH_LOCK_CONTENDERS_H
#define KIV_BENCH_LOCK_CONTENDERS_H

#include <windows.h>

#include <mutex>

#include "kivsdu/kivsdu.h"

namespace kiv::bench {

constexpr uint8_t kTestAndSet = 0;
constexpr uint8_t kTickets = 1;

template <uint8_t kDesign>
struct Spinlock {
  Spinlock() {
    KivSdSetHardwareAcceleration(kDesign);
    lock = KivSdSpinlockCreate(nullptr, 0);
  }
  ~Spinlock() { KivSdSpinlockDestroy(nullptr, lock); }
  Spinlock(const Spinlock&) = delete;
  Spinlock& operator=(const Spinlock&) = delete;

  KivSdSpinlock* lock;

  struct Session {
    explicit Session(Spinlock* contender) : lock(contender->lock) {}
    void Enter() { KivSdSpinlockAcquire(lock, thread); }
    void Leave() { KivSdSpinlockRelease(lock); }

    KivSdSpinlock* lock;
    uint32_t thread = GetCurrentThreadId();
  };
};

// The pair that does not count.
template <uint8_t kDesign>
struct SpinlockOnce : Spinlock<kDesign> {
  struct Session : Spinlock<kDesign>::Session {
    using Base = typename Spinlock<kDesign>::Session;
    explicit Session(SpinlockOnce* contender) : Base(contender) {}
    void Enter() { KivSdSpinlockAcquireNonReentrant(Base::lock, Base::thread); }
    void Leave() { KivSdSpinlockReleaseNonReentrant(Base::lock); }
  };
};

// On a line of its own, as a careful host would have it.
template <uint8_t kDesign>
struct alignas(64) LightSpinlock {
  LightSpinlock() {
    KivSdSetHardwareAcceleration(kDesign);
    KivSdLWSpinlockInit(&lock);
  }
  ~LightSpinlock() { KivSdLWSpinlockDestroy(&lock); }
  LightSpinlock(const LightSpinlock&) = delete;
  LightSpinlock& operator=(const LightSpinlock&) = delete;

  KivSdLWSpinlock lock;

  struct Session {
    explicit Session(LightSpinlock* contender) : lock(&contender->lock) {}
    void Enter() { KivSdLWSpinlockAcquire(lock); }
    void Leave() { KivSdLWSpinlockRelease(lock); }

    KivSdLWSpinlock* lock;
  };
};

struct alignas(64) RwLock {
  static constexpr uint8_t kBlockingAllowed = 1;
  static constexpr int32_t kSlot = 0;

  RwLock() { KivRWLockInit(nullptr, 0, &lock, kBlockingAllowed, kSlot); }

  KivRWLock lock;

  struct Session {
    explicit Session(RwLock* contender) : lock(&contender->lock) {}
    ~Session() { KivRWLockFreeQNodes(&table); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Enter() { KivSdStartWrite(nullptr, &table, lock); }
    void Leave() { KivSdEndRW(nullptr, &table, lock); }
    void EnterRead() { KivSdStartRead(nullptr, &table, lock); }
    void LeaveRead() { KivSdEndRW(nullptr, &table, lock); }

    KivRWLock* lock;
    KivRWLockTable table = {};
  };
};

// Waits as the spinlocks do, by limits that a host may set in the environment: spins and yields in
// turns, and never sleeps.
struct SleeplessRwLock : RwLock {
  SleeplessRwLock() {
    lock.readerSpinYields = 1;
    lock.writerSpinYields = 1;
    lock.readerWaitLoops = 0;
    lock.writerWaitLoops = 0;
  }
};

struct alignas(64) CriticalSection {
  CriticalSection() { InitializeCriticalSection(&section); }
  ~CriticalSection() { DeleteCriticalSection(&section); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  CRITICAL_SECTION section;

  struct Session {
    explicit Session(CriticalSection* contender) : section(&contender->section) {}
    void Enter() { EnterCriticalSection(section); }
    void Leave() { LeaveCriticalSection(section); }

    CRITICAL_SECTION* section;
  };
};

struct alignas(64) SrwLock {
  SRWLOCK lock = SRWLOCK_INIT;

  struct Session {
    explicit Session(SrwLock* contender) : lock(&contender->lock) {}
    void Enter() { AcquireSRWLockExclusive(lock); }
    void Leave() { ReleaseSRWLockExclusive(lock); }
    void EnterRead() { AcquireSRWLockShared(lock); }
    void LeaveRead() { ReleaseSRWLockShared(lock); }

    SRWLOCK* lock;
  };
};

struct alignas(64) StdMutex {
  std::mutex mutex;

  struct Session {
    explicit Session(StdMutex* contender) : mutex(&contender->mutex) {}
    void Enter() { mutex->lock(); }
    void Leave() { mutex->unlock(); }

    std::mutex* mutex;
  };
};

// One thread's part in a lock that several use. The first taking of all is done: it may make
// what later ones find.
template <typename Lock>
struct ReadySession : Lock::Session {
  explicit ReadySession(Lock* contender) : Lock::Session(contender) {
    this->Enter();
    this->Leave();
  }
};

// Runs `body` in the lock: with other readers if the lock knows them, else alone.
template <typename Session, typename Body>
void Read(Session* session, Body body) {
  if constexpr (requires { session->EnterRead(); }) {
    session->EnterRead();
    body();
    session->LeaveRead();
  } else {
    session->Enter();
    body();
    session->Leave();
  }
}

template <typename Session, typename Body>
void Write(Session* session, Body body) {
  session->Enter();
  body();
  session->Leave();
}

}  // namespace kiv::bench

#endif
