// Linux' own locks, as contenders (lock_contenders.h).
#ifndef KIV_BENCH_LNX_PLATFORM_LOCKS_H
#define KIV_BENCH_LNX_PLATFORM_LOCKS_H

#include <pthread.h>

#include <shared_mutex>

namespace kiv::bench {

struct alignas(64) PthreadMutex {
  PthreadMutex() = default;
  ~PthreadMutex() { pthread_mutex_destroy(&mutex); }
  PthreadMutex(const PthreadMutex&) = delete;
  PthreadMutex& operator=(const PthreadMutex&) = delete;

  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

  struct Session {
    explicit Session(PthreadMutex* contender) : mutex(&contender->mutex) {}
    void Enter() { pthread_mutex_lock(mutex); }
    void Leave() { pthread_mutex_unlock(mutex); }

    pthread_mutex_t* mutex;
  };
};

struct alignas(64) PthreadSpinlock {
  PthreadSpinlock() { pthread_spin_init(&lock, PTHREAD_PROCESS_PRIVATE); }
  ~PthreadSpinlock() { pthread_spin_destroy(&lock); }
  PthreadSpinlock(const PthreadSpinlock&) = delete;
  PthreadSpinlock& operator=(const PthreadSpinlock&) = delete;

  pthread_spinlock_t lock;

  struct Session {
    explicit Session(PthreadSpinlock* contender) : lock(&contender->lock) {}
    void Enter() { pthread_spin_lock(lock); }
    void Leave() { pthread_spin_unlock(lock); }

    pthread_spinlock_t* lock;
  };
};

struct alignas(64) PthreadRwLock {
  PthreadRwLock() = default;
  ~PthreadRwLock() { pthread_rwlock_destroy(&lock); }
  PthreadRwLock(const PthreadRwLock&) = delete;
  PthreadRwLock& operator=(const PthreadRwLock&) = delete;

  pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;

  struct Session {
    explicit Session(PthreadRwLock* contender) : lock(&contender->lock) {}
    void Enter() { pthread_rwlock_wrlock(lock); }
    void Leave() { pthread_rwlock_unlock(lock); }
    void EnterRead() { pthread_rwlock_rdlock(lock); }
    void LeaveRead() { pthread_rwlock_unlock(lock); }

    pthread_rwlock_t* lock;
  };
};

struct alignas(64) StdSharedMutex {
  std::shared_mutex mutex;

  struct Session {
    explicit Session(StdSharedMutex* contender) : mutex(&contender->mutex) {}
    void Enter() { mutex->lock(); }
    void Leave() { mutex->unlock(); }
    void EnterRead() { mutex->lock_shared(); }
    void LeaveRead() { mutex->unlock_shared(); }

    std::shared_mutex* mutex;
  };
};

}  // namespace kiv::bench

// X(lock) for each lock, for those that support readers, and for those that a thread may take again.
#define KIV_BENCH_PLATFORM_LOCKS(X) \
  X(PthreadMutex) X(PthreadSpinlock) X(PthreadRwLock) X(StdSharedMutex)
#define KIV_BENCH_PLATFORM_READER_LOCKS(X) X(PthreadRwLock) X(StdSharedMutex)
#define KIV_BENCH_PLATFORM_RECURSIVE_LOCKS(X)  // std::recursive_mutex is pthread's

#endif
