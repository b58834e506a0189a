// Start-up and shutdown of the server, in the order that the library asks for: settings and
// hooks first, while there is one thread, then the resources, then the thread's own record.
#ifndef CELLHOST_HOST_H
#define CELLHOST_HOST_H

#include <stdint.h>

#include <atomic>

#include "lock_design.h"

namespace cellhost {

// The server's own counts. The library keeps the pointer to it (hostValue) for us.
struct HostRecord {
  std::atomic<uint32_t> leaseChecks;  // how often the lease guard was asked
  std::atomic<uint32_t> threads;      // that have a record now
};

// Both on the main thread, once each. StartHost says what failed, and gives back what it took.
//
//   locks  the design of every spinlock of the process; it cannot be changed later
bool StartHost(LockDesign locks);
void StopHost();

// The server's record; after StartHost, any thread.
const HostRecord& Host();

}  // namespace cellhost

#endif
