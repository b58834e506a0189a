// Process-wide settings and hooks.
//
// The host writes these before its threads start, and the library reads them without a lock. They
// are atomic only so that a read during a late write returns the old or the new value. Every access
// is relaxed: no value here publishes other data.
#include "kivsdu/settings.h"

#include <atomic>

namespace {

std::atomic<uint8_t> failoverMode{0};
std::atomic<KivSdLeaseGuardFunction> leaseGuard{nullptr};
std::atomic<uint32_t> fileLockingMode{1};
std::atomic<const char*> appFolderName{"APP"};

// A host function that can be replaced but never removed once it is installed. A call reads the
// pointer once and uses it without a lock.
class Hook {
 public:
  void Install(KivSdHookFunction function) {
    if (function != nullptr) function_.store(function, std::memory_order_relaxed);
  }

  void Call(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth) const {
    const KivSdHookFunction function = function_.load(std::memory_order_relaxed);
    if (function != nullptr) function(first, second, third, fourth);
  }

 private:
  std::atomic<KivSdHookFunction> function_{nullptr};
};

Hook threadAttach;
Hook threadDetach;
Hook statistics;

}  // namespace

uint8_t KivSdIsFailoverMode() { return failoverMode.load(std::memory_order_relaxed); }

void KivSdSetFailoverModeFlag(uint8_t flag) { failoverMode.store(flag, std::memory_order_relaxed); }

void KivSdGetLeaseGuard() {
  const KivSdLeaseGuardFunction guard = leaseGuard.load(std::memory_order_relaxed);
  if (guard != nullptr) guard();
}

void KivSdSetLeaseGuardAccessFunction(KivSdLeaseGuardFunction guard) {
  leaseGuard.store(guard, std::memory_order_relaxed);
}

void KivSdSetUkrThreadAttachFunction(KivSdHookFunction hook) { threadAttach.Install(hook); }

void KivSdSetUkrThreadDetachFunction(KivSdHookFunction hook) { threadDetach.Install(hook); }

void KivSdSetHMStatisticsFunction(KivSdHookFunction hook) { statistics.Install(hook); }

void KivSdUkrThreadAttach(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth) {
  threadAttach.Call(first, second, third, fourth);
}

void KivSdUkrThreadDetach(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth) {
  threadDetach.Call(first, second, third, fourth);
}

void KivSdUpdateHMStatistics(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth) {
  statistics.Call(first, second, third, fourth);
}

// Compatibility: nothing reads this setting. Hosts of several platforms set it.
void KivSdSetFileLockingMode(uint32_t mode) {
  fileLockingMode.store(mode, std::memory_order_relaxed);
}

void KivSdSetAppFolderName(const char* name) {
  appFolderName.store(name, std::memory_order_relaxed);
}

const char* KivSdAppFolderName() { return appFolderName.load(std::memory_order_relaxed); }
