// Waiting on a node, and waking the thread that waits.
#ifndef KIV_SDRWLOCK_WAIT_H
#define KIV_SDRWLOCK_WAIT_H

#include "sdrwlock/node.h"

namespace kiv {

// acquire: pairs with the release of Unblock; what the one before wrote is visible to who enters.
inline bool IsBlocked(const KivRWLockNode& node) {
  return node.blocked.load(std::memory_order_acquire) != 0;
}

// release: pairs with the acquire of IsBlocked.
inline void Unblock(KivRWLockNode* node) { node->blocked.store(0, std::memory_order_release); }

// Waits until the node is no longer blocked, as its lock allows: spinning alone, or spinning,
// then yielding, then sleeping within the limits of readers or of writers.
void WaitAsReader(KivRWLockNode* node);
void WaitAsWriter(KivRWLockNode* node);

// Lets another thread's node in.
void WakeOther(KivRWLockNode* node);

// Lets the node's thread in; does nothing if it is not blocked. `own` is the caller's own node,
// or null: that one is let in without a call of the system.
inline void Wake(KivRWLockNode* node, const KivRWLockNode* own) {
  if (!IsBlocked(*node)) return;
  if (node == own) return Unblock(node);
  WakeOther(node);
}

}  // namespace kiv

#endif
