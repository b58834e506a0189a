// Windows' own locks, as contenders (lock_contenders.h).
#ifndef KIV_BENCH_W32_PLATFORM_LOCKS_H
#define KIV_BENCH_W32_PLATFORM_LOCKS_H

#include <windows.h>

namespace kiv::bench {

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

}  // namespace kiv::bench

// X(lock) for each lock, for those that support readers, and for those that a thread may take again.
#define KIV_BENCH_PLATFORM_LOCKS(X) X(CriticalSection) X(SrwLock)
#define KIV_BENCH_PLATFORM_READER_LOCKS(X) X(SrwLock)
#define KIV_BENCH_PLATFORM_RECURSIVE_LOCKS(X) X(CriticalSection)

#endif
