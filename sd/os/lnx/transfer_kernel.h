// The two services of the kernel that run transfers in the background, with one interface.
#ifndef KIV_OS_LNX_TRANSFER_KERNEL_H
#define KIV_OS_LNX_TRANSFER_KERNEL_H

#include <cstdint>

#include "os/lnx/futex.h"
#include "os/lnx/transfer_queue.h"

namespace kiv::os {

// The end of a transfer. A null record is the answer to a kick.
struct TransferEnd {
  KivSdNoWaitCb* record;
  bool isRead;
  int64_t answer;  // the count, or an error number below zero
};

// A record and the direction in one number that the kernel carries. Records are aligned to 8 bytes.
constexpr uint64_t kReadMark = 1;

inline uint64_t MarkOf(const Transfer& transfer) {
  return reinterpret_cast<uintptr_t>(transfer.record) | (transfer.isRead ? kReadMark : 0);
}

inline TransferEnd EndOf(uint64_t mark, int64_t answer) {
  const bool isRead = (mark & kReadMark) != 0;
  auto* record = reinterpret_cast<KivSdNoWaitCb*>(static_cast<uintptr_t>(mark & ~kReadMark));
  return {record, isRead, answer};
}

struct TransferKernel {
  const char* name;
  uint32_t capacity;  // transfers at a time

  // Whether the kernel offers the service to this process.
  bool (*open)();
  // Gives the service back, or in a forked child what it inherited of its parent's.
  void (*drop)();

  // EAGAIN if other transfers have to end first. One thread at a time.
  Result (*start)(int descriptor, const Transfer& transfer);
  // Makes a thread in `collect` return. One thread at a time, and not during `start`.
  void (*kick)();

  // Waits until a transfer ends or the deadline has passed, and returns the ends of up to `most`.
  // A null deadline does not wait. One thread at a time, also during `start` and `kick`.
  uint32_t (*collect)(TransferEnd* ends, uint32_t most, const Deadline* deadline);
};

extern const TransferKernel ringKernel;
extern const TransferKernel aioKernel;

}  // namespace kiv::os

#endif
