// The failover guard.
#ifndef KIV_LEASE_GUARD_H
#define KIV_LEASE_GUARD_H

#include "kivsdu/settings.h"

namespace kiv {

// Called first by every operation that failover mode guards, before it looks at its arguments:
// the host may fence off a node that lost its lease, whatever the node was about to ask.
inline void RunLeaseGuard() {
  if (KivSdIsFailoverMode() != 0) KivSdGetLeaseGuard();
}

}  // namespace kiv

#endif
