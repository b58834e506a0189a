// Start-up and shutdown of the server, in the order that the library asks for, while there is one
// thread: settings and hooks, the switches of memory and the locks' design, then the memory
// manager, then the resources, then the thread's own record.
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

// Whether the library asks the lease guard before it touches what another server could share:
// files, pipes, shared memory, modules, facts of the system.
enum class Failover : uint8_t { kOff = 0, kOn = 1 };

// Both on the main thread, once each. StartHost says what failed, and gives back what it took.
//
//   locks     the design of every spinlock of the process; it cannot be changed later
//   memory    whether there may be heaps; see memory_manager.h
//   failover  in failover mode files are opened so that other servers can open them too
//
// Everything made between the two is freed before StopHost.
bool StartHost(LockDesign locks, MemoryUse memory, Failover failover = Failover::kOff);
void StopHost();

// The server's record. Any thread.
const HostRecord& Host();

}  // namespace cellhost

#endif
