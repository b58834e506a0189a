// Start-up and shutdown; see host.h.
#include "host/host.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/memory.h"
#include "kivsdu/numa.h"
#include "kivsdu/settings.h"
#include "kivsdu/sync.h"
#include "kivsdu/vorutil.h"

namespace cellhost {
namespace {

// Static, because the library keeps the pointer and does not copy the text.
constexpr char kAppFolderName[] = "cellhost";

// In plain mode, blocks come from the C runtime, without a header of the library.
constexpr uint8_t kWithoutHeaders = 0;
constexpr uint8_t kMappedAllocation = 0;

HostRecord theHost;

HostRecord* OwnRecord() { return static_cast<HostRecord*>(KivSdVorUtilGlobals()->hostValue); }

// In a cluster, the guard would check the server's lease and end the process without one. This
// guard only counts. relaxed, here and below: the counts are only displayed and order nothing.
void GuardLease() { OwnRecord()->leaseChecks.fetch_add(1, std::memory_order_relaxed); }

void CountAttach(uint64_t, uint64_t, uint64_t, uint64_t) {
  OwnRecord()->threads.fetch_add(1, std::memory_order_relaxed);
}

void CountDetach(uint64_t, uint64_t, uint64_t, uint64_t) {
  OwnRecord()->threads.fetch_sub(1, std::memory_order_relaxed);
}

void InstallSettings(Failover failover) {
  KivSdVorUtilGlobals()->hostValue = &theHost;
  KivSdSetAppFolderName(kAppFolderName);
  KivSdSetLeaseGuardAccessFunction(GuardLease);
  KivSdSetFailoverModeFlag(static_cast<uint8_t>(failover));
  KivSdSetUkrThreadAttachFunction(CountAttach);
  KivSdSetUkrThreadDetachFunction(CountDetach);
}

// The lock design comes before anything that makes a lock, such as the memory manager: the two
// designs use different lock layouts.
void SetSwitches(LockDesign locks) {
  KivSdSetMemoryManager(kWithoutHeaders);
  KivSdSetMmapAllocCfg(kMappedAllocation);
  KivSdSetHardwareAcceleration(static_cast<uint8_t>(locks));
}

bool StartThreads() {
  if (!Succeeded(nullptr, KivSdVorUtilTlsInit(), "make the thread slot")) return false;
  if (EnterThread()) return true;
  KivSdVorUtilTlsTerm();
  return false;
}

}  // namespace

bool StartHost(LockDesign locks, MemoryUse memory, Failover failover) {
  InstallSettings(failover);
  SetSwitches(locks);
  // Before any block is allocated.
  if (StartMemoryManager(memory)) {
    KivSdInitNumaResources();
    if (StartThreads()) return true;
  }
  StopMemoryManager();
  return false;
}

void StopHost() {
  LeaveThread();
  KivSdVorUtilTlsTerm();
  // The thread hooks stay, because they cannot be removed. The counters that they use are static.
  KivSdSetFailoverModeFlag(static_cast<uint8_t>(Failover::kOff));
  KivSdSetLeaseGuardAccessFunction(nullptr);
  StopMemoryManager();
}

const HostRecord& Host() { return theHost; }

}  // namespace cellhost
