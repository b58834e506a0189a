// The locks that are compared, with one interface:
//
//   Lock lock;                     a free lock
//   Lock::Session session(&lock);  one thread's use of the lock
//   session.Enter(); Leave();      exclusive
//   session.EnterRead(); ...       shared with other readers, if the lock supports readers
//
// The design of the library's spinlocks is a setting of the process, which may change only while no
// lock exists. A contender therefore sets its design when it is made, and only one exists at a
// time.
//
// platform_locks.h has the platform's own locks.
#ifndef KIV_BENCH_LOCK_CONTENDERS_H
#define KIV_BENCH_LOCK_CONTENDERS_H

#include <mutex>

#include "kivsdu/kivsdu.h"
#include "platform_locks.h"
#include "raw.h"

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
    uint32_t thread = raw::ThreadId();
  };
};

// The non-reentrant operations, which keep no count.
template <uint8_t kDesign>
struct SpinlockOnce : Spinlock<kDesign> {
  struct Session : Spinlock<kDesign>::Session {
    using Base = typename Spinlock<kDesign>::Session;
    explicit Session(SpinlockOnce* contender) : Base(contender) {}
    void Enter() { KivSdSpinlockAcquireNonReentrant(Base::lock, Base::thread); }
    void Leave() { KivSdSpinlockReleaseNonReentrant(Base::lock); }
  };
};

// On its own cache line, as a careful host places it.
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

// A reader-writer lock with limits that a host can set in the environment: like a spinlock, it
// spins and yields by turns and never sleeps.
struct SleeplessRwLock : RwLock {
  SleeplessRwLock() {
    lock.readerSpinYields = 1;
    lock.writerSpinYields = 1;
    lock.readerWaitLoops = 0;
    lock.writerWaitLoops = 0;
  }
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

// The lock that its thread may take again.
struct alignas(64) RecursiveMutex {
  std::recursive_mutex mutex;

  struct Session {
    explicit Session(RecursiveMutex* contender) : mutex(&contender->mutex) {}
    void Enter() { mutex->lock(); }
    void Leave() { mutex->unlock(); }

    std::recursive_mutex* mutex;
  };
};

// One thread's use of a contended lock. Enters and leaves once beforehand: the first entry may
// allocate what later ones use.
template <typename Lock>
struct ReadySession : Lock::Session {
  explicit ReadySession(Lock* contender) : Lock::Session(contender) {
    this->Enter();
    this->Leave();
  }
};

// Runs `body` under the lock: shared if the lock supports readers, else exclusive.
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
