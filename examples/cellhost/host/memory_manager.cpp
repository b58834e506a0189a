// The host's side of the memory manager; see memory_manager.h.
#include "host/memory_manager.h"

#include <numeric>

#include "host/complain.h"
#include "kivsdu/manager.h"
#include "kivsdu/memusage.h"
#include "kivsdu/publisher.hpp"
#include "kivsdu/status.h"

namespace cellhost {
namespace {

constexpr char kConfigurationSuffix[] = "cellhost";
constexpr uint32_t kOnlyIfConfigured = 0;

MemoryMessages theMessages;

kivsdu::MemoryPublisher thePublisher;

// The host's context. The library reads only its handle, and passes the handle back with each
// message to identify the host. This process has one host.
constexpr uint32_t kContextWords = 27;
constexpr uint32_t kHandleWord = 26;
constexpr uint64_t kThisHost = 1;
uint64_t theContext[kContextWords];

// Called on any thread that allocates; the library holds no lock.
uint32_t ReceiveMessage(uint64_t handle, uint32_t status, uint32_t /*severity*/,
                        const uint32_t* first, uint32_t /*firstTag*/, const uint32_t* second,
                        uint32_t /*secondTag*/) {
  if (handle != kThisHost) return 0;
  thePublisher.CountMessage(status);
  switch (status) {
    case KIV_ST_MSG_LIMIT_NEAR:
      theMessages.warnings.fetch_add(1, std::memory_order_relaxed);
      Complain("memory: %u bytes are in use, more than %u%% of the limit", *first, *second);
      break;
    case KIV_ST_MSG_LIMIT_REFUSED:
    case KIV_ST_MSG_NO_MEMORY:
      theMessages.refusals.fetch_add(1, std::memory_order_relaxed);
      Complain("memory: %u bytes more, %u in all, were refused: %s", *second, *first,
               ReasonOf(nullptr, status).text);
      break;
    case KIV_ST_MSG_LIMIT_TOO_LOW:
      Complain("memory: a limit of %u bytes is too low, set %u KiB or more; runs in plain mode",
               *first, *second);
      break;
    default:
      Complain("memory: %s", ReasonOf(nullptr, status).text);
  }
  return 0;
}

}  // namespace

bool StartMemoryManager(MemoryUse use) {
  const uint32_t enable = use == MemoryUse::kAsConfigured ? 1 : 0;
  const uint32_t status =
      adMemThreadHeapInit(enable, ReceiveMessage, kConfigurationSuffix, kOnlyIfConfigured);
  // After the start, because the start forgets an earlier context.
  theContext[kHandleWord] = kThisHost;
  adMemSetThreadContext(theContext);
  adMemCheckMemoryMinStatus(theContext);
  return Succeeded(nullptr, status, "start the memory manager");
}

bool PublishMemory() {
  return Succeeded(nullptr, thePublisher.Start("cellhost"), "publish the memory in use");
}

void StopMemoryManager() {
  thePublisher.Stop();
  adMemResetThreadContext();
  adMemThreadHeapTerm();
}

const MemoryMessages& MemoryMessagesSeen() { return theMessages; }

MemoryTotals MemoryTotalsNow() {
  MemoryTotals totals = {};
  uint64_t usedPeak = 0;
  uint64_t alignedPeak = 0;
  totals.counted = adMemGetUsedMemory(&totals.outsideHeaps, &totals.inHeaps, &totals.aligned,
                                      &usedPeak, &alignedPeak, &totals.peak) == KIV_ST_OK;
  return totals;
}

MemoryBlocks MemoryBlocksNow() {
  constexpr uint32_t kSinceStart = 1;
  uint64_t allocated[AD_BLOCK_CLASSES] = {};
  uint64_t freed[AD_BLOCK_CLASSES] = {};
  adMemGetUsedMemoryBlocks(kSinceStart, allocated, freed);
  return {.allocated = std::accumulate(allocated, allocated + AD_BLOCK_CLASSES, uint64_t{0}),
          .freed = std::accumulate(freed, freed + AD_BLOCK_CLASSES, uint64_t{0})};
}

}  // namespace cellhost
