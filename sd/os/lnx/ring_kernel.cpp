// io_uring. The ring is shared with the kernel: one thread submits, another one collects.
#include <liburing.h>

#include <cerrno>

#include "os/lnx/transfer_kernel.h"

namespace kiv::os {
namespace {

// Submissions are handed over one by one; ends that nobody has collected yet fill the other queue.
constexpr uint32_t kSubmissions = 64;
constexpr uint32_t kEnds = 4096;

// Waiting with a time limit beside a thread that submits needs EXT_ARG. Without NODROP, ends could
// be lost.
constexpr uint32_t kNeeded = IORING_FEAT_EXT_ARG | IORING_FEAT_NODROP;

io_uring ring;

bool Open() {
  io_uring_params parameters = {};
  parameters.flags = IORING_SETUP_CQSIZE;
  parameters.cq_entries = kEnds;
  if (io_uring_queue_init_params(kSubmissions, &ring, &parameters) != 0) return false;
  if ((parameters.features & kNeeded) == kNeeded) return true;
  io_uring_queue_exit(&ring);
  return false;
}

void Drop() { io_uring_queue_exit(&ring); }

// Hands over the entry that was prepared last. If the kernel takes none now, the entry stays in the
// queue as one that does nothing, and goes with the next.
Result Submit(io_uring_sqe* entry) {
  int taken = -EINTR;
  while (taken == -EINTR) taken = io_uring_submit(&ring);
  if (taken > 0) return {true, 0};
  io_uring_prep_nop(entry);
  io_uring_sqe_set_data64(entry, 0);
  const bool busy = taken == 0 || taken == -EAGAIN || taken == -EBUSY;
  return {false, busy ? uint32_t{EAGAIN} : static_cast<uint32_t>(-taken)};
}

Result Start(int descriptor, const Transfer& transfer) {
  io_uring_sqe* entry = io_uring_get_sqe(&ring);
  if (entry == nullptr) return {false, EAGAIN};
  const auto offset = uint64_t{transfer.record->offsetHigh} << 32 | transfer.record->offsetLow;
  if (transfer.isRead) {
    io_uring_prep_read(entry, descriptor, transfer.buffer, transfer.sizeBytes, offset);
  } else {
    io_uring_prep_write(entry, descriptor, transfer.buffer, transfer.sizeBytes, offset);
  }
  io_uring_sqe_set_data64(entry, MarkOf(transfer));
  return Submit(entry);
}

void Kick() {
  io_uring_sqe* entry = io_uring_get_sqe(&ring);
  if (entry == nullptr) return;
  io_uring_prep_nop(entry);
  io_uring_sqe_set_data64(entry, 0);
  static_cast<void>(Submit(entry));
}

uint32_t Collect(TransferEnd* ends, uint32_t most, const Deadline* deadline) {
  io_uring_cqe* found[64];
  const uint32_t room = most < 64 ? most : 64;
  uint32_t count = io_uring_peek_batch_cqe(&ring, found, room);
  if (count == 0 && deadline != nullptr) {
    const timespec left = TimeLeft(*deadline);
    __kernel_timespec limit = {left.tv_sec, left.tv_nsec};
    io_uring_cqe* first = nullptr;
    io_uring_wait_cqe_timeout(&ring, &first, deadline->never ? nullptr : &limit);
    count = io_uring_peek_batch_cqe(&ring, found, room);
  }
  for (uint32_t i = 0; i < count; ++i) ends[i] = EndOf(found[i]->user_data, found[i]->res);
  io_uring_cq_advance(&ring, count);
  return count;
}

}  // namespace

const TransferKernel ringKernel = {"io_uring", kEnds, Open, Drop, Start, Kick, Collect};

}  // namespace kiv::os
