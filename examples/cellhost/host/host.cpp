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

// The library keeps the pointer, not the text.
constexpr char kAppFolderName[] = "cellhost";

// Blocks of plain mode are the C runtime's as they are, without headers of the library.
constexpr uint8_t kWithoutHeaders = 0;
constexpr uint8_t kMappedAllocation = 0;

HostRecord theHost;

HostRecord* OwnRecord() { return static_cast<HostRecord*>(KivSdVorUtilGlobals()->hostValue); }

// A server of a cluster would look here whether it still holds its lease, and end itself if not.
// This one has no other to share with, and counts. relaxed, here and below: the counts are only
// shown and order nothing.
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

// The locks' design before anything that may make a lock, and the memory manager does: the two
// designs keep their fields in different places.
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
  // Before anything has memory.
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
  // The hooks stay, as a hook cannot be taken away; the record that they count in is static.
  KivSdSetFailoverModeFlag(static_cast<uint8_t>(Failover::kOff));
  KivSdSetLeaseGuardAccessFunction(nullptr);
  StopMemoryManager();
}

const HostRecord& Host() { return theHost; }

}  // namespace cellhost
