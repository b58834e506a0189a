// Direct I/O: blocking transfers, and transfers that are started and collected later.
//
// Transfers with a completion record, and all writes, take their offset from a record, up to 4 GiB.
//
// Compatibility: a read without a record moves the file's position first. Such a read reaches only
// the first 2 GiB, and callers see the new position through KivSdDirectIOFilePointerGet.
//
// Counts round down to whole blocks. Only a transfer that fails with the end-of-file error counts a
// partial block as one. Callers use the count to distinguish a short file from an error.
#include "kivsdu/directio.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "os/direct_files.h"
#include "os/kernel_objects.h"
#include "os/transfers.h"
#include "report.h"
#include "sdfiow32/direct_block.h"

using namespace kiv;

namespace {

using Transferred = os::ValueResult<uint32_t>;  // count of bytes transferred, also on failure

void SetOffset(KivSdNoWaitCb* record, uint32_t firstBlock) {
  record->offsetLow = BytesOf(firstBlock);
  record->offsetHigh = 0;
}

// Sets the record's offset, and creates its event if it has none.
os::Result Prepare(KivSdNoWaitCb* record, uint32_t firstBlock) {
  SetOffset(record, firstBlock);
  if (record->event != nullptr) return {true, 0};
  const os::ValueResult<void*> made = os::MakeManualEvent();
  if (made.ok) record->event = made.value;
  return {made.ok, made.error};
}

bool IsPending(const Transferred& moved) {
  return !moved.ok && moved.error == os::kErrorTransferPending;
}

bool IsAtEnd(const Transferred& moved) { return !moved.ok && moved.error == os::kErrorEndOfFile; }

uint32_t BlocksOf(const Transferred& moved) {
  return IsAtEnd(moved) ? StartedBlocks(moved.value) : WholeBlocks(moved.value);
}

uint32_t ReportRead(KivSdContext* ctx, const Transferred& read, uint32_t failure,
                    uint32_t* blocks) {
  *blocks = BlocksOf(read);
  return ReportOutcome(ctx, read, IsAtEnd(read) ? KIV_ST_FILE_END : failure);
}

uint32_t StatusOfFailedWrite(uint32_t error, uint32_t otherwise) {
  if (error == os::kErrorDiskFull) return KIV_ST_DISK_FULL;
  if (error == os::kErrorTransferPending) return KIV_ST_DIRECT_WRITE_PENDING;
  return otherwise;
}

uint32_t ReportWrite(KivSdContext* ctx, const Transferred& written, uint32_t failure,
                     uint32_t* blocks) {
  *blocks = WholeBlocks(written.value);
  return ReportOutcome(ctx, written, StatusOfFailedWrite(written.error, failure));
}

uint32_t StartRead(KivSdContext* ctx, uint32_t file, void* buffer, uint32_t blockCount,
                   KivSdNoWaitCb* record, uint32_t* blocks) {
  const Transferred read = os::ReadSystemFile(HandleOf(file), buffer, BytesOf(blockCount), record);
  if (!IsPending(read)) return ReportRead(ctx, read, KIV_ST_DIRECT_READ, blocks);
  *blocks = 0;
  return Report(ctx, KIV_ST_DIRECT_READ_PENDING, read.error);
}

uint32_t ReadAndWait(KivSdContext* ctx, uint32_t file, uint32_t firstBlock, void* buffer,
                     uint32_t blockCount, uint32_t* blocks) {
  *blocks = 0;
  const auto distance = static_cast<int32_t>(BytesOf(firstBlock));
  const Transferred moved = os::MoveFilePointer(HandleOf(file), distance, os::Origin::kBeginning);
  if (!moved.ok) return Report(ctx, KIV_ST_DIRECT_POINTER_SET, moved.error);
  const Transferred read = os::ReadSystemFile(HandleOf(file), buffer, BytesOf(blockCount), nullptr);
  return ReportRead(ctx, read, KIV_ST_FILE_READ, blocks);
}

uint32_t StartWrite(KivSdContext* ctx, uint32_t file, const void* buffer, uint32_t blockCount,
                    KivSdNoWaitCb* record, uint32_t* blocks) {
  Transferred written = os::WriteSystemFile(HandleOf(file), buffer, BytesOf(blockCount), record);
  // A pending write counts no blocks here: KivSdDirectIOWait counts them all.
  if (IsPending(written)) written.value = 0;
  return ReportWrite(ctx, written, KIV_ST_DIRECT_WRITE, blocks);
}

// A local record without an event holds the offset, so the file's position does not matter.
//
// Compatibility: on an overlapped file the write may stay pending. It is reported as pending,
// although no caller can collect it.
uint32_t WriteAndWait(KivSdContext* ctx, uint32_t file, uint32_t firstBlock, const void* buffer,
                      uint32_t blockCount, uint32_t* blocks) {
  KivSdNoWaitCb record = {};
  SetOffset(&record, firstBlock);
  const Transferred written =
      os::WriteSystemFile(HandleOf(file), buffer, BytesOf(blockCount), &record);
  return ReportWrite(ctx, written, KIV_ST_FILE_WRITE, blocks);
}

uint32_t StatusOfCollected(const Transferred& moved) {
  if (moved.ok) return KIV_ST_OK;
  if (IsAtEnd(moved)) return KIV_ST_FILE_END;
  return moved.error == os::kErrorDiskFull ? KIV_ST_DISK_FULL : KIV_ST_DIRECT_COMPLETION;
}

}  // namespace

uint32_t KivSdDirectIOFileRead(KivSdContext* ctx, uint32_t file, uint32_t firstBlock, void* buffer,
                               uint32_t blockCount, KivSdNoWaitCb* record, uint32_t* blocksRead) {
  RunLeaseGuard();
  if (blocksRead == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  if (record == nullptr) return ReadAndWait(ctx, file, firstBlock, buffer, blockCount, blocksRead);
  *blocksRead = 0;
  const os::Result prepared = Prepare(record, firstBlock);
  if (!prepared.ok) return Report(ctx, KIV_ST_EVENT_CREATE, prepared.error);
  return StartRead(ctx, file, buffer, blockCount, record, blocksRead);
}

uint32_t KivSdDirectIOFileWrite(KivSdContext* ctx, uint32_t file, uint32_t firstBlock,
                                const void* buffer, uint32_t blockCount, KivSdNoWaitCb* record,
                                uint32_t* blocksWritten) {
  RunLeaseGuard();
  if (blocksWritten == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  if (record == nullptr) {
    return WriteAndWait(ctx, file, firstBlock, buffer, blockCount, blocksWritten);
  }
  *blocksWritten = 0;
  const os::Result prepared = Prepare(record, firstBlock);
  if (!prepared.ok) return Report(ctx, KIV_ST_EVENT_CREATE, prepared.error);
  return StartWrite(ctx, file, buffer, blockCount, record, blocksWritten);
}

uint32_t KivSdDirectIOWait(KivSdContext* ctx, uint32_t file, KivSdNoWaitCb* record,
                           uint32_t* blocksDone) {
  RunLeaseGuard();
  if (record == nullptr || blocksDone == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Wait waited = os::WaitOne(record->event, os::kWaitForEver);
  // Compatibility: the record holds the wait's result, not the last error. Hosts log it.
  if (waited.result == os::kWaitAbandoned) {
    return Report(ctx, KIV_ST_DIRECT_WAIT_ABANDONED, waited.result);
  }
  if (waited.result != os::kWaitSignalled) return Report(ctx, KIV_ST_EVENT_WAIT, waited.result);

  const Transferred moved = os::TransferOutcome(HandleOf(file), record);
  *blocksDone = BlocksOf(moved);
  const os::Result reset = os::UnsignalEvent(record->event);
  if (!reset.ok) return Report(ctx, KIV_ST_COMPLETION_RESET, reset.error);
  return Report(ctx, StatusOfCollected(moved), moved.error);
}
