// Waiting on a node, and waking the thread that waits on it.
#ifndef KIV_SDRWLOCK_WAIT_H
#define KIV_SDRWLOCK_WAIT_H

#include "sdrwlock/node.h"

namespace kiv {

// acquire: pairs with the release of Unblock; the entering thread sees everything that the previous
// holder wrote.
inline bool IsBlocked(const KivRWLockNode& node) {
  return node.blocked.load(std::memory_order_acquire) != 0;
}

// release: pairs with the acquire of IsBlocked.
inline void Unblock(KivRWLockNode* node) { node->blocked.store(0, std::memory_order_release); }

// Waits until the node is unblocked. On a lock that does not allow blocking the thread only spins;
// otherwise it spins, yields and finally sleeps, within the limits of readers or of writers.
void WaitAsReader(KivRWLockNode* node);
void WaitAsWriter(KivRWLockNode* node);

// Unblocks another thread's node and wakes its thread if that sleeps.
void WakeOther(KivRWLockNode* node);

// Unblocks the node and wakes its thread; does nothing if the node is not blocked. `own` is the
// caller's own node, or null; unblocking one's own node needs no system call.
inline void Wake(KivRWLockNode* node, const KivRWLockNode* own) {
  if (!IsBlocked(*node)) return;
  if (node == own) return Unblock(node);
  WakeOther(node);
}

}  // namespace kiv

#endif
