// The kernel's older asynchronous I/O. The five system calls are made here: the static archive of
// the usual library has versioned symbols, which cannot be linked into a shared library.
#include <linux/aio_abi.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "os/lnx/transfer_kernel.h"
#include "os/lnx/transfer_record.h"

namespace kiv::os {
namespace {

constexpr uint32_t kTransfers = 2048;
constexpr uint32_t kLeastTransfers = 64;

aio_context_t context;
int alwaysReady = -1;  // an event descriptor that can be read: a poll of it ends at once

bool OpenContext() {
  for (uint32_t count = kTransfers; count >= kLeastTransfers; count /= 2) {
    context = 0;
    if (syscall(SYS_io_setup, count, &context) == 0) return true;
    if (errno != EAGAIN) return false;
  }
  return false;
}

bool Open() {
  if (!OpenContext()) return false;
  alwaysReady = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
  if (alwaysReady != -1) return true;
  syscall(SYS_io_destroy, context);
  return false;
}

// A forked child does not inherit the context: there the first call only fails.
void Drop() {
  syscall(SYS_io_destroy, context);
  close(alwaysReady);
}

Result Submit(iocb* block) {
  long taken = -1;
  do {
    taken = syscall(SYS_io_submit, context, 1L, &block);
  } while (taken == -1 && errno == EINTR);
  if (taken == 1) return {true, 0};
  return {false, taken == 0 ? uint32_t{EAGAIN} : static_cast<uint32_t>(errno)};
}

Result Start(int descriptor, const Transfer& transfer) {
  iocb block = {};
  block.aio_data = MarkOf(transfer);
  block.aio_lio_opcode = transfer.isRead ? IOCB_CMD_PREAD : IOCB_CMD_PWRITE;
  block.aio_fildes = static_cast<uint32_t>(descriptor);
  block.aio_buf = reinterpret_cast<uintptr_t>(transfer.buffer);
  block.aio_nbytes = transfer.sizeBytes;
  block.aio_offset = OffsetIn(transfer.record);
  return Submit(&block);
}

void Kick() {
  iocb block = {};
  block.aio_lio_opcode = IOCB_CMD_POLL;
  block.aio_fildes = static_cast<uint32_t>(alwaysReady);
  block.aio_buf = POLLIN;
  static_cast<void>(Submit(&block));
}

uint32_t Collect(TransferEnd* ends, uint32_t most, const Deadline* deadline) {
  io_event found[64];
  const long room = most < 64 ? static_cast<long>(most) : 64;
  timespec limit = {};
  if (deadline != nullptr) limit = TimeLeft(*deadline);
  const bool forEver = deadline != nullptr && deadline->never;
  const long count = syscall(SYS_io_getevents, context, deadline != nullptr ? 1L : 0L, room, found,
                             forEver ? nullptr : &limit);
  if (count <= 0) return 0;
  for (long i = 0; i < count; ++i) ends[i] = EndOf(found[i].data, found[i].res);
  return static_cast<uint32_t>(count);
}

}  // namespace

const TransferKernel aioKernel = {"aio", kTransfers, Open, Drop, Start, Kick, Collect};

}  // namespace kiv::os
