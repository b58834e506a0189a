// Starts and stops thread heaps.
#include "kivsdu/context.h"
#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "memsys/accounting.h"
#include "memsys/configuration.h"
#include "memsys/locks.h"
#include "memsys/messages.h"
#include "memsys/settings.h"
#include "memsys/short_pool.h"
#include "memsys/slots.h"
#include "memsys/statistics.h"
#include "memsys/thread_heaps.h"

using namespace kiv;

namespace {

constexpr int32_t kTerminated = -1;

void ReadSettings(const char* suffix, bool force) {
  MemorySettings settings = DefaultMemorySettings();
  ReadMemoryConfiguration(suffix, force, &settings);
  ValidateMemorySettings(&settings);
  memorySettings = settings;
}

// After a failure, and in plain mode: turns off statistics and short heaps, and memory control if
// its lock could not be made.
void SwitchOffWhatIsMissing() {
  memorySettings.memoryControl &= memoryLocks.accounting != nullptr;
  memorySettings.blockStatistics = false;
  memorySettings.shortHeaps = false;
}

// Makes the accounting lock if memory control is on: the host may register regions in plain mode.
bool PreparePlainMode() {
  return !memorySettings.memoryControl || EnsureMemoryLock(&memoryLocks.accounting);
}

bool PrepareHeaps() {
  if (!EnsureMemoryLock(&memoryLocks.accounting)) return false;
  if (memorySettings.largestBlockBytes != 0) {
    if (!MakeThreadHeaps(memorySettings.threadHeaps)) return false;
  } else {
    PrepareSpareHeaps(memorySettings.heapBudget, 0);
  }
  ListMemoryConfiguration(memorySettings);
  return EnsureMemoryLock(&memoryLocks.ring);
}

bool PrepareOptions() {
  if (memorySettings.shortHeaps && !PrepareShortPool()) return false;
  return !memorySettings.blockStatistics || PrepareBlockStatistics();
}

uint32_t PrepareThreadHeaps() {
  // Made and freed in plain mode, because thread-heap mode begins later.
  KivSdContext* context = nullptr;
  if (KivSdInit(&context) != KIV_ST_OK) return KIV_ST_OUT_OF_MEMORY;
  const bool ready = PrepareHeaps() && PrepareOptions();
  KivSdTerm(context);
  return ready ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
}

}  // namespace

uint32_t adMemThreadHeapInit(uint32_t enable, AdMessageFunction messages, const char* suffix,
                             uint32_t force) {
  SetMessageFunction(messages);
  // Compatibility: initialising a second time switches thread heaps off. Hosts rely on it.
  const bool wasInitialized = threadHeapCount != 0;
  SetThreadHeapCount(0);
  if (enable == 0 || wasInitialized) return KIV_ST_OK;
  ResetTotals();
  ResetMessages();
  ReadSettings(suffix, force != 0);
  ForgetAlignedRegions();
  if (memorySettings.threadHeaps == 0) {
    const bool ready = PreparePlainMode();
    SwitchOffWhatIsMissing();
    return ready ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
  }
  const uint32_t status = PrepareThreadHeaps();
  if (status != KIV_ST_OK) {
    SwitchOffWhatIsMissing();
    return status;
  }
  // Last: from here on, requests go to the heaps.
  SetThreadHeapCount(memorySettings.threadHeaps);
  return KIV_ST_OK;
}

int32_t adMemThreadHeapTerm() {
  if (InThreadHeapMode()) SetThreadHeapCount(kTerminated);
  return threadHeapCount;
}
