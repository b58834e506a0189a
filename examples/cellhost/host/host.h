// Start-up and shutdown of the server, in the order that the library asks for: the locks' design,
// the memory manager, settings and hooks, while there is one thread, then the resources, then the
// thread's own record.
#ifndef CELLHOST_HOST_HOST_H
#define CELLHOST_HOST_HOST_H

#include <stdint.h>

#include <atomic>

#include "host/lock_design.h"
#include "host/memory_manager.h"

namespace cellhost {

// The server's own counts. The library keeps the pointer to it (hostValue) for us.
struct HostRecord {
  std::atomic<uint32_t> leaseChecks;  // how often the lease guard was asked
  std::atomic<uint32_t> threads;      // that have a record now
};

// Both on the main thread, once each. StartHost says what failed, and gives back what it took.
//
//   locks   the design of every spinlock of the process; it cannot be changed later
//   memory  whether there may be heaps; see memory_manager.h
//
// Everything made between the two is freed before StopHost.
bool StartHost(LockDesign locks, MemoryUse memory);
void StopHost();

// The server's record; after StartHost, any thread.
const HostRecord& Host();

}  // namespace cellhost

#endif
