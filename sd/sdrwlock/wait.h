// Waiting on a node, and waking the thread that waits.
#ifndef KIV_SDRWLOCK_WAIT_H
#define KIV_SDRWLOCK_WAIT_H

#include "sdrwlock/node.h"

namespace kiv {

// Waits until the node is no longer blocked, as its lock allows: spinning alone, or spinning,
// then yielding, then sleeping within the limits of readers or of writers.
void WaitAsReader(KivRWLockNode* node);
void WaitAsWriter(KivRWLockNode* node);

// Lets the node's thread in; does nothing if it is not blocked. `own` is the caller's own node,
// or null: that one is let in without a call of the system.
void Wake(KivRWLockNode* node, const KivRWLockNode* own);

}  // namespace kiv

#endif
