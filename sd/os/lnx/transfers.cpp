#include "os/transfers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "os/kernel_objects.h"
#include "os/lnx/direct_file.h"
#include "os/lnx/raw_transfers.h"
#include "os/lnx/system_file.h"
#include "os/lnx/transfer_queue.h"
#include "os/lnx/transfer_record.h"

namespace kiv::os {
namespace {

using Transferred = ValueResult<uint32_t>;

constexpr Transferred kBadFile = {false, EBADF, 0};

int64_t AnswerOf(int64_t count) { return count == -1 ? -int64_t{errno} : count; }

// At the file's position. The end of the file is no failure here.
Transferred TransferHere(int descriptor, const Transfer& transfer) {
  const int64_t answer =
      AnswerOf(transfer.isRead ? ReadRaw(descriptor, transfer.buffer, transfer.sizeBytes)
                               : WriteRaw(descriptor, transfer.buffer, transfer.sizeBytes));
  return OutcomeOf(answer, false, false);
}

// At the record's offset. Compatibility: the position ends behind the bytes, as it does on Windows
// for files that are not overlapped. Hosts continue from there.
Transferred TransferAt(int descriptor, const Transfer& transfer) {
  const int64_t offset = OffsetIn(transfer.record);
  const int64_t answer = AnswerOf(
      transfer.isRead ? ReadRawAt(descriptor, transfer.buffer, transfer.sizeBytes, offset)
                      : WriteRawAt(descriptor, transfer.buffer, transfer.sizeBytes, offset));
  const Transferred moved = OutcomeOf(answer, transfer.isRead, transfer.sizeBytes == 0);
  if (moved.ok) lseek(descriptor, offset + moved.value, SEEK_SET);
  return moved;
}

// Ends a transfer that was not started in the background like one that was.
Transferred TransferNow(int descriptor, const Transfer& transfer) {
  void* event = transfer.record->event;
  if (event != nullptr) {
    const Result reset = UnsignalEvent(event);
    if (!reset.ok) return {false, reset.error, 0};
  }
  const Transferred moved = TransferAt(descriptor, transfer);
  StoreOutcome(transfer.record, moved.error, moved.value);
  if (moved.ok && event != nullptr) static_cast<void>(SignalEvent(event));
  return moved;
}

Transferred TransferOfDescriptor(int descriptor, const Transfer& transfer) {
  return transfer.record == nullptr ? TransferHere(descriptor, transfer)
                                    : TransferAt(descriptor, transfer);
}

Transferred TransferOfFile(void* file, const Transfer& transfer) {
  const DirectFileUse use(file);
  if (!use || !use->transfers) return kBadFile;
  if (transfer.record == nullptr) {
    if (use->overlapped) return {false, EINVAL, 0};
    return TransferHere(use->descriptor, transfer);
  }
  // Without an event, nobody could learn of the end of a transfer in the background. An empty one is
  // not worth starting.
  const bool inBackground =
      use->overlapped && transfer.record->event != nullptr && transfer.sizeBytes != 0;
  if (!inBackground) return TransferNow(use->descriptor, transfer);
  const Result started = StartTransfer(use->descriptor, transfer);
  return {false, started.error, 0};
}

Transferred Run(void* file, const Transfer& transfer) {
  const int descriptor = DescriptorOf(file);
  if (descriptor == -1) return TransferOfFile(file, transfer);
  return TransferOfDescriptor(descriptor, transfer);
}

// The position from which the origin counts; -1 with errno.
int64_t StartOf(int descriptor, Origin origin) {
  switch (origin) {
    case Origin::kBeginning:
      return 0;
    case Origin::kPosition:
      return lseek(descriptor, 0, SEEK_CUR);
    case Origin::kEnd: {
      struct stat status;
      return fstat(descriptor, &status) == -1 ? -1 : status.st_size;
    }
    default:
      errno = EINVAL;
      return -1;
  }
}

Transferred Move(int descriptor, int32_t distanceBytes, Origin origin) {
  const int64_t start = StartOf(descriptor, origin);
  if (start == -1) return {false, static_cast<uint32_t>(errno), 0};
  const int64_t position = start + distanceBytes;
  if (position < 0) return {false, EINVAL, 0};
  if (position > UINT32_MAX) return {false, EOVERFLOW, 0};
  if (lseek(descriptor, position, SEEK_SET) == -1) return {false, static_cast<uint32_t>(errno), 0};
  return {true, 0, static_cast<uint32_t>(position)};
}

}  // namespace

Transferred ReadSystemFile(void* file, void* buffer, uint32_t sizeBytes, KivSdNoWaitCb* record) {
  return Run(file, {true, buffer, sizeBytes, record});
}

Transferred WriteSystemFile(void* file, const void* buffer, uint32_t sizeBytes,
                            KivSdNoWaitCb* record) {
  return Run(file, {false, const_cast<void*>(buffer), sizeBytes, record});
}

Transferred MoveFilePointer(void* file, int32_t distanceBytes, Origin origin) {
  const int descriptor = DescriptorOf(file);
  if (descriptor != -1) return Move(descriptor, distanceBytes, origin);
  const DirectFileUse use(file);
  return use ? Move(use->descriptor, distanceBytes, origin) : kBadFile;
}

}  // namespace kiv::os
