// Start and stop of thread heaps.
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

// A switch stands for what is there: nothing is counted under a lock that could not be made.
void SwitchOffWhatIsMissing() {
  memorySettings.memoryControl &= memoryLocks.accounting != nullptr;
  memorySettings.blockStatistics = false;
  memorySettings.shortHeaps = false;
}

// Without thread heaps: the host may register regions all the same.
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
  // Made and released in plain mode, as every context of the library's own.
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
  // Kept: a second initialisation switches thread heaps off.
  const bool wasInitialized = threadHeapCount != 0;
  threadHeapCount = 0;
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
  // Last, for it is what turns requests to the heaps.
  threadHeapCount = memorySettings.threadHeaps;
  return KIV_ST_OK;
}

int32_t adMemThreadHeapTerm() {
  if (threadHeapCount > 0) threadHeapCount = kTerminated;
  return threadHeapCount;
}
