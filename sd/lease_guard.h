// The lease guard of failover mode.
#ifndef KIV_LEASE_GUARD_H
#define KIV_LEASE_GUARD_H

#include "kivsdu/settings.h"

namespace kiv {

// Calls the host's lease guard in failover mode. Every guarded operation calls this first, before
// it checks its arguments: the host can fence off a node that lost its lease, whatever the call.
inline void RunLeaseGuard() {
  if (KivSdIsFailoverMode() != 0) KivSdGetLeaseGuard();
}

}  // namespace kiv

#endif
