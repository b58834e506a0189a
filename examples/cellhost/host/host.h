// Start-up and shutdown of the library, while the process has one thread. The library requires this
// order: settings and hooks; memory switches and lock design; memory manager; NUMA resources; the
// thread slot and the main thread's record.
#ifndef CELLHOST_HOST_HOST_H
#define CELLHOST_HOST_HOST_H

#include <stdint.h>

#include <atomic>

#include "host/lock_design.h"
#include "host/memory_manager.h"

namespace cellhost {

// The host's own counters. The library keeps a pointer to them (hostValue).
struct HostRecord {
  std::atomic<uint32_t> leaseChecks;  // number of calls of the lease guard
  std::atomic<uint32_t> threads;      // number of threads that have a record
};

// Failover mode: the library calls the lease guard before each operation on something that other
// servers could share: files, pipes, shared memory, modules, system information. It also opens
// files so that other servers can open them too, because the lease decides whose turn it is.
//
// This example belongs to no cluster; its guard only counts. In this mode nothing keeps a second
// server out of the data folder.
enum class Failover : uint8_t { kOff = 0, kOn = 1 };

// Call each once, on the main thread. StartHost reports a failure, and releases what it acquired.
// Free everything made after StartHost before StopHost.
//
//   locks     design of every spinlock of the process; cannot be changed later
//   memory    whether to read the memory configuration; see memory_manager.h
//   failover  see Failover
bool StartHost(LockDesign locks, MemoryUse memory, Failover failover = Failover::kOff);
void StopHost();

// The server's record. Any thread.
const HostRecord& Host();

}  // namespace cellhost

#endif
