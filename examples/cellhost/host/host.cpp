// Start-up and shutdown; see host.h.
#include "host/host.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/numa.h"
#include "kivsdu/settings.h"
#include "kivsdu/sync.h"
#include "kivsdu/vorutil.h"

namespace cellhost {
namespace {

// The library keeps the pointer, not the text.
constexpr char kAppFolderName[] = "cellhost";

// Failover would have the library ask the lease guard before it touches anything shared. This
// server runs alone.
constexpr uint8_t kFailoverOff = 0;

HostRecord theHost;

HostRecord* OwnRecord() { return static_cast<HostRecord*>(KivSdVorUtilGlobals()->hostValue); }

// relaxed, here and below: the counts are only shown and order nothing.
void GuardLease() { OwnRecord()->leaseChecks.fetch_add(1, std::memory_order_relaxed); }

void CountAttach(uint64_t, uint64_t, uint64_t, uint64_t) {
  OwnRecord()->threads.fetch_add(1, std::memory_order_relaxed);
}

void CountDetach(uint64_t, uint64_t, uint64_t, uint64_t) {
  OwnRecord()->threads.fetch_sub(1, std::memory_order_relaxed);
}

void InstallSettings() {
  KivSdVorUtilGlobals()->hostValue = &theHost;
  KivSdSetAppFolderName(kAppFolderName);
  KivSdSetLeaseGuardAccessFunction(GuardLease);
  KivSdSetFailoverModeFlag(kFailoverOff);
  KivSdSetUkrThreadAttachFunction(CountAttach);
  KivSdSetUkrThreadDetachFunction(CountDetach);
}

bool StartThreads() {
  if (!Succeeded(nullptr, KivSdVorUtilTlsInit(), "make the thread slot")) return false;
  if (EnterThread()) return true;
  KivSdVorUtilTlsTerm();
  return false;
}

}  // namespace

bool StartHost(LockDesign locks, MemoryUse memory) {
  // Before anything that may make a lock, and the memory manager does: the two designs keep their
  // fields in different places.
  KivSdSetHardwareAcceleration(static_cast<uint8_t>(locks));
  // Before anything has memory.
  if (StartMemoryManager(memory)) {
    InstallSettings();
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
  KivSdSetLeaseGuardAccessFunction(nullptr);
  StopMemoryManager();
}

const HostRecord& Host() { return *OwnRecord(); }

}  // namespace cellhost
