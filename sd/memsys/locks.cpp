#include "memsys/locks.h"

#include "kivsdu/manager.h"
#include "kivsdu/sync.h"
#include "memsys/plain.h"
#include "sdsync/spinlock.h"

using namespace kiv;

MemoryLocks kiv::memoryLocks;

KivSdSpinlock* kiv::CreatePlainSpinlock() {
  KivSyncEnvInit();
  void* memory = PlainAllocate(sizeof(KivSdSpinlock), AD_POLICY_FULL);
  return memory == nullptr ? nullptr : InitializeSpinlock(memory);
}

bool kiv::EnsureMemoryLock(KivSdSpinlock** lock) {
  if (*lock == nullptr) *lock = CreatePlainSpinlock();
  return *lock != nullptr;
}
