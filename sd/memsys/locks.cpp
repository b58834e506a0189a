#include "memsys/locks.h"

#include "sdsync/spinlock.h"

kiv::MemoryLocks kiv::memoryLocks;

bool kiv::EnsureMemoryLock(KivSdSpinlock** lock) {
  if (*lock == nullptr) *lock = CreatePlainSpinlock();
  return *lock != nullptr;
}
