// Direct I/O: opens, closes and removes files, and handles their positions and sizes.
#include "kivsdu/directio.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "os/direct_files.h"
#include "os/share_mode.h"
#include "os/transfers.h"
#include "report.h"
#include "sdfiow32/direct_block.h"

using namespace kiv;

namespace {

// In failover mode a node that takes over opens files that the failed node may still hold.
uint32_t ShareMode(uint32_t wanted) { return KivSdIsFailoverMode() != 0 ? os::kShareAll : wanted; }

// The distance is signed: from the beginning, 2 GiB and more is a negative position, which the
// system refuses.
os::ValueResult<uint32_t> Move(uint32_t file, uint32_t blocks, os::Origin origin) {
  return os::MoveFilePointer(HandleOf(file), static_cast<int32_t>(BytesOf(blocks)), origin);
}

// Reports a result in bytes and stores it in whole blocks.
uint32_t ReportBlocks(KivSdContext* ctx, const os::ValueResult<uint32_t>& answer, uint32_t failure,
                      uint32_t* blocks) {
  *blocks = answer.ok ? WholeBlocks(answer.value) : 0;
  return ReportOutcome(ctx, answer, failure);
}

}  // namespace

uint32_t KivSdDirectIOFileCreate(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  if (path == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<void*> made =
      os::OpenDirectFile(path, os::kAccessWrite, ShareMode(os::kNoSharing), os::kOpenOrMake, 0);
  if (!made.ok) return Report(ctx, KIV_ST_FILE_CREATE, made.error);
  return ReportOutcome(ctx, os::CloseDirectFile(made.value), KIV_ST_FILE_CLOSE);
}

uint32_t KivSdDirectIOFileOpen(KivSdContext* ctx, const char* path, uint32_t access,
                               uint32_t shareMode, uint32_t disposition, const void* /*ignored*/,
                               uint32_t flags, uint32_t* file) {
  RunLeaseGuard();
  if (path == nullptr || file == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<void*> opened =
      os::OpenDirectFile(path, access, ShareMode(shareMode), disposition, flags);
  *file = FileOf(opened.value);
  const bool held = opened.error == os::kErrorSharingViolation;
  return ReportOutcome(ctx, opened, held ? KIV_ST_FILE_SHARING : KIV_ST_FILE_CREATE);
}

// Compatibility: no operation that closes runs the lease guard. A node that has lost its lease must
// still be able to release its files.
uint32_t KivSdDirectIOFileClose(KivSdContext* ctx, uint32_t file) {
  return ReportOutcome(ctx, os::CloseDirectFile(HandleOf(file)), KIV_ST_FILE_CLOSE);
}

// Compatibility: the system checks the path. Callers recognise a null path by the OS error.
uint32_t KivSdDirectIOFileRemove(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  return ReportOutcome(ctx, os::RemoveDirectFile(path), KIV_ST_FILE_REMOVE);
}

uint32_t KivSdDirectIOFilePointerSet(KivSdContext* ctx, uint32_t file, uint32_t blocks,
                                     uint32_t method, uint32_t* position) {
  RunLeaseGuard();
  if (position == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> moved = Move(file, blocks, static_cast<os::Origin>(method));
  return ReportBlocks(ctx, moved, KIV_ST_DIRECT_POINTER_SET, position);
}

uint32_t KivSdDirectIOFilePointerGet(KivSdContext* ctx, uint32_t file, uint32_t* position) {
  RunLeaseGuard();
  if (position == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> found = Move(file, 0, os::Origin::kPosition);
  return ReportBlocks(ctx, found, KIV_ST_DIRECT_POINTER_GET, position);
}

uint32_t KivSdDirectIOFileSize(KivSdContext* ctx, uint32_t file, uint32_t* blocks) {
  RunLeaseGuard();
  if (blocks == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> size = os::DirectFileSize(HandleOf(file));
  return ReportBlocks(ctx, size, KIV_ST_FILE_LENGTH, blocks);
}

uint32_t KivSdDirectIOFileSetEndOfFile(KivSdContext* ctx, uint32_t file, uint32_t blocks,
                                       uint32_t* newSize) {
  RunLeaseGuard();
  if (newSize == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *newSize = 0;
  const os::ValueResult<uint32_t> moved = Move(file, blocks, os::Origin::kBeginning);
  if (!moved.ok) return Report(ctx, KIV_ST_DIRECT_POINTER_SET, moved.error);
  const os::Result ended = os::EndFileAtPosition(HandleOf(file));
  if (!ended.ok) return Report(ctx, KIV_ST_DIRECT_SET_END, ended.error);
  *newSize = WholeBlocks(moved.value);
  return Report(ctx, KIV_ST_OK);
}

// Compatibility: this takes a descriptor of the runtime, whereas every other operation here takes a
// system handle. Hosts size their files before they open them for direct I/O.
uint32_t KivSdDirectIOFileChangeSize(KivSdContext* ctx, uint32_t descriptor, uint32_t blocks,
                                     uint32_t* newSize) {
  RunLeaseGuard();
  if (newSize == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result resized =
      os::ResizeDescriptor(descriptor, static_cast<int32_t>(BytesOf(blocks)));
  if (!resized.ok) {
    const bool full = resized.error == os::kErrnoNoSpace;
    return Report(ctx, full ? KIV_ST_DISK_FULL : KIV_ST_DIRECT_SET_END, resized.error);
  }
  *newSize = blocks;
  return Report(ctx, KIV_ST_OK);
}
