// The operations under the checks of locks. unchecked_lock_names.h gives them these names.
#ifndef KIV_CHECKED_UNCHECKED_LOCKS_H
#define KIV_CHECKED_UNCHECKED_LOCKS_H

#include "kivsdu/rwlock.h"
#include "kivsdu/spinlock.h"

extern "C" {

extern decltype(KivSdSpinlockCreate) KivUncheckedSpinlockCreate;
extern decltype(KivSdSpinlockDestroy) KivUncheckedSpinlockDestroy;
extern decltype(KivSdSpinlockAcquire) KivUncheckedSpinlockAcquire;
extern decltype(KivSdSpinlockRelease) KivUncheckedSpinlockRelease;
extern decltype(KivSdSpinlockAcquireNonReentrant) KivUncheckedSpinlockAcquireNonReentrant;
extern decltype(KivSdSpinlockReleaseNonReentrant) KivUncheckedSpinlockReleaseNonReentrant;
extern decltype(KivSdLWSpinlockInit) KivUncheckedLWSpinlockInit;
extern decltype(KivSdLWSpinlockDestroy) KivUncheckedLWSpinlockDestroy;
extern decltype(KivSdLWSpinlockAcquire) KivUncheckedLWSpinlockAcquire;
extern decltype(KivSdLWSpinlockRelease) KivUncheckedLWSpinlockRelease;
extern decltype(KivRWLockInit) KivUncheckedRWLockInit;
extern decltype(KivRWLockFreeQNodes) KivUncheckedRWLockFreeQNodes;
extern decltype(KivSdStartRead) KivUncheckedStartRead;
extern decltype(KivSdStartWrite) KivUncheckedStartWrite;
extern decltype(KivSdEndRW) KivUncheckedEndRW;

}  // extern "C"

#endif
