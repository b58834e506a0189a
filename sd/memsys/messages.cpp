#include "memsys/messages.h"

#include <atomic>

#include "kivsdu/memusage.h"
#include "kivsdu/status.h"
#include "memsys/accounting.h"
#include "memsys/allocation_clock.h"
#include "memsys/settings.h"

using namespace kiv;

namespace {

constexpr uint32_t kClassWarning = 3;
constexpr uint32_t kClassError = 4;
constexpr uint32_t kIntegerTag = 6;
constexpr uint32_t kWarningPercent = 90;
constexpr uint32_t kQuietTicks = 1000;
constexpr size_t kHandleWord = 26;  // of a host's context record

enum Kind : uint32_t { kNone = 0, kWarning = 1, kOutOfMemory = 2 };

Relaxed<AdMessageFunction> callback{nullptr};
Relaxed<const uint64_t*> hostContext{nullptr};
Relaxed<uint32_t> lastKind{kNone};
Relaxed<uint32_t> nextTick{0};

struct Message {
  uint32_t status;
  uint32_t severity;
  uint32_t first;
  uint32_t second;
};

uint32_t Call(const uint64_t* context, const Message& message) {
  const AdMessageFunction function = callback;
  if (function == nullptr) return KIV_ST_OK;
  return function(context[kHandleWord], message.status, message.severity, &message.first,
                  kIntegerTag, &message.second, kIntegerTag);
}

// Sends a message and starts the throttle. Without a context it does neither.
void Send(const Message& message) {
  const uint64_t* context = hostContext;
  if (context == nullptr) return;
  nextTick = static_cast<uint32_t>(allocationClock.ticks() + kQuietTicks);
  static_cast<void>(Call(context, message));
}

bool IsQuiet() { return nextTick > allocationClock.ticks(); }

}  // namespace

void kiv::SetMessageFunction(AdMessageFunction function) { callback = function; }

void kiv::ResetMessages() {
  hostContext = nullptr;
  lastKind = kNone;
  nextTick = 0;
  messageState.failedTotal = 0;
  messageState.warningPending = 0;
}

void kiv::ReportFailedRequest(uint64_t requestedBytes) {
  messageState.failedTotal = static_cast<uint32_t>(AccountedTotal() + requestedBytes);
  ReportOutOfMemory(requestedBytes);
}

// The clock does not advance in plain mode: after the first message, further ones are suppressed.
void kiv::ReportPlainFailure(uint64_t requestedBytes) {
  if (callback != nullptr) ReportFailedRequest(requestedBytes);
}

void kiv::ReportOutOfMemory(uint64_t requestedBytes) {
  messageState.warningPending = 0;
  if (lastKind == kOutOfMemory && IsQuiet()) return;
  lastKind = kOutOfMemory;
  Send({memorySettings.limitBytes != 0 ? KIV_ST_MSG_LIMIT_REFUSED : KIV_ST_MSG_NO_MEMORY,
        kClassError, messageState.failedTotal, static_cast<uint32_t>(requestedBytes)});
}

// Compatibility: a suppressed warning is recorded as the last kind, a sent one is not. After a
// suppressed warning the next failure is sent at once; after a sent one it may be suppressed. Hosts
// know this order of messages.
uint32_t kiv::SendWarning() {
  messageState.warningPending = 0;
  if (IsQuiet()) {
    lastKind = kWarning;
    return KIV_ST_OK;
  }
  Send({KIV_ST_MSG_LIMIT_NEAR, kClassWarning, messageState.failedTotal, kWarningPercent});
  return KIV_ST_OK;
}

void adMemSetThreadContext(const void* context) {
  hostContext = static_cast<const uint64_t*>(context);
}

void adMemResetThreadContext() { hostContext = nullptr; }

void adMemSendErrorMessage(uint32_t blockCount) {
  if (!memorySettings.memoryControl) return;
  messageState.failedTotal = static_cast<uint32_t>(AccountedTotal());
  ReportOutOfMemory(uint64_t{blockCount} * AD_MEMORY_UNIT);
}

uint32_t adMemCheckMemoryMinStatus(const void* context) {
  if (!memorySettings.limitRejected) return KIV_ST_OK;
  return Call(static_cast<const uint64_t*>(context),
              {KIV_ST_MSG_LIMIT_TOO_LOW, kClassError,
               static_cast<uint32_t>(memorySettings.limitBytes), kMinLimitKiB});
}
