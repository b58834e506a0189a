// The two internal words of a completion record: the error of the transfer, which is
// kErrorTransferPending until it has ended, and the count of bytes.
#ifndef KIV_OS_LNX_TRANSFER_RECORD_H
#define KIV_OS_LNX_TRANSFER_RECORD_H

#include <atomic>
#include <cstdint>

#include "kivsdu/directio.h"
#include "os/os.h"

namespace kiv::os {

// acquire: pairs with StoreOutcome; the transferred bytes and the count are visible.
inline uint32_t StatusIn(KivSdNoWaitCb* record) {
  const std::atomic_ref<uint64_t> status(record->internalStatus);
  return static_cast<uint32_t>(status.load(std::memory_order_acquire));
}

// The owner may use the record again as soon as the status is stored.
inline void StoreOutcome(KivSdNoWaitCb* record, uint32_t error, uint32_t count) {
  record->internalBytes = count;
  const std::atomic_ref<uint64_t> status(record->internalStatus);
  status.store(error, std::memory_order_release);
}

inline int64_t OffsetIn(const KivSdNoWaitCb* record) {
  return static_cast<int64_t>(uint64_t{record->offsetHigh} << 32 | record->offsetLow);
}

// The outcome of a transfer by the kernel's answer: a count, or an error number below zero.
inline ValueResult<uint32_t> OutcomeOf(int64_t answer, bool isRead, bool isEmpty) {
  constexpr uint32_t kEndOfFile = 38;
  if (answer < 0) return {false, static_cast<uint32_t>(-answer), 0};
  if (answer == 0 && isRead && !isEmpty) return {false, kEndOfFile, 0};
  return {true, 0, static_cast<uint32_t>(answer)};
}

}  // namespace kiv::os

#endif
