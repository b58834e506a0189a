// Linux: files opened with O_DIRECT. The words of CreateFile are translated here, bit by bit.
//
// The kernel wants offsets, sizes and addresses aligned as the file system asks. Blocks of 8192
// bytes satisfy every file system of today; the open of a file on one that asks for more, or that
// has no direct transfers, fails with EINVAL. It never falls back to the system's cache.
#include "os/direct_files.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "kivsdu/directio.h"
#include "os/lnx/direct_file.h"
#include "os/lnx/open_file.h"
#include "os/lnx/posix.h"
#include "os/lnx/share_claims.h"
#include "os/lnx/transfer_queue.h"
#include "os/lnx/transfer_record.h"
#include "os/share_mode.h"

namespace kiv::os {

const uint32_t kErrorSharingViolation = EBUSY;
const uint32_t kErrorEndOfFile = 38;
const uint32_t kErrorTransferPending = 997;

namespace {

// Access.
constexpr uint32_t kReadData = 0x00000001;
constexpr uint32_t kWriteData = 0x00000002;
constexpr uint32_t kReadAttributes = 0x00000080;
constexpr uint32_t kWriteAttributes = 0x00000100;
constexpr uint32_t kDelete = 0x00010000;
constexpr uint32_t kReadControl = 0x00020000;
constexpr uint32_t kSynchronize = 0x00100000;
constexpr uint32_t kAccessAll = 0x10000000;
constexpr uint32_t kAccessRead = 0x80000000;
constexpr uint32_t kReads = kReadData | kAccessRead | kAccessAll;
constexpr uint32_t kWrites = kWriteData | kAccessWrite | kAccessAll;
constexpr uint32_t kKnownAccess =
    kReads | kWrites | kReadAttributes | kWriteAttributes | kDelete | kReadControl | kSynchronize;

// Share modes.
constexpr uint32_t kShareRead = 1;
constexpr uint32_t kShareWrite = 2;

// Dispositions.
constexpr uint32_t kMakeNew = 1;
constexpr uint32_t kMakeEmpty = 2;
constexpr uint32_t kOpenOnly = 3;
constexpr uint32_t kEmptyOnly = 5;

// Attributes and flags.
constexpr uint32_t kReadOnly = 0x00000001;
constexpr uint32_t kArchive = 0x00000020;
constexpr uint32_t kNormal = 0x00000080;
constexpr uint32_t kTemporary = 0x00000100;
constexpr uint32_t kNotIndexed = 0x00002000;
constexpr uint32_t kCaseSensitive = 0x01000000;
constexpr uint32_t kDeleteOnClose = 0x04000000;
constexpr uint32_t kSequentialScan = 0x08000000;
constexpr uint32_t kRandomAccess = 0x10000000;
constexpr uint32_t kUnbuffered = 0x20000000;
constexpr uint32_t kOverlapped = 0x40000000;
constexpr uint32_t kWriteThrough = 0x80000000;
constexpr uint32_t kHints = kArchive | kNormal | kTemporary | kNotIndexed | kCaseSensitive |
                            kSequentialScan | kRandomAccess | kUnbuffered;
constexpr uint32_t kKnownFlags = kHints | kReadOnly | kDeleteOnClose | kOverlapped | kWriteThrough;

void* const kNoFile = reinterpret_cast<void*>(intptr_t{-1});

bool TranslateAccess(uint32_t access, OpenPlan* plan) {
  if ((access & ~kKnownAccess) != 0) return false;
  if ((access & kReads) != 0) plan->uses |= kRightRead;
  if ((access & kWrites) != 0) plan->uses |= kRightWrite;
  if (plan->uses == (kRightRead | kRightWrite)) {
    plan->access = O_RDWR;
  } else {
    plan->access = plan->uses == kRightWrite ? O_WRONLY : O_RDONLY;
  }
  return true;
}

bool TranslateShare(uint32_t shareMode, OpenPlan* plan) {
  if (shareMode > kShareAll) return false;
  if ((shareMode & kShareRead) == 0) plan->denies |= kRightRead;
  if ((shareMode & kShareWrite) == 0) plan->denies |= kRightWrite;
  return true;
}

bool TranslateDisposition(uint32_t disposition, OpenPlan* plan) {
  switch (disposition) {
    case kMakeNew:
      plan->making = Making::kOnlyNew;
      return true;
    case kMakeEmpty:
      plan->making = Making::kIfMissing;
      plan->empties = true;
      return true;
    case kOpenOnly:
      return true;
    case kOpenOrMake:
      plan->making = Making::kIfMissing;
      return true;
    case kEmptyOnly:
      plan->empties = true;
      return (plan->uses & kRightWrite) != 0;
    default:
      return false;
  }
}

bool TranslateFlags(uint32_t flags, OpenPlan* plan) {
  if ((flags & ~kKnownFlags) != 0) return false;
  plan->moreFlags = O_DIRECT;
  if ((flags & kWriteThrough) != 0) plan->moreFlags |= O_DSYNC;
  plan->readOnlyIfNew = (flags & kReadOnly) != 0;
  return true;
}

// What the file system asks of direct transfers, if it says so. The call is made without the C
// library, whose record has no room for the answer in older versions.
bool AsksTooMuch(int descriptor) {
  struct statx answer = {};
  if (syscall(SYS_statx, descriptor, "", AT_EMPTY_PATH, STATX_DIOALIGN, &answer) == -1) {
    return false;
  }
  if ((answer.stx_mask & STATX_DIOALIGN) == 0) return false;
  return answer.stx_dio_offset_align == 0 || answer.stx_dio_offset_align > KIV_PAGE_UNIT;
}

// A file system in memory may accept O_DIRECT and ignore it.
bool IsInMemory(int descriptor) {
  struct statfs system;
  if (fstatfs(descriptor, &system) == -1) return false;
  const auto type = static_cast<uint32_t>(system.f_type);
  return type == TMPFS_MAGIC || type == RAMFS_MAGIC;
}

bool HasDirectTransfers(int descriptor) {
  return !IsInMemory(descriptor) && !AsksTooMuch(descriptor);
}

ValueResult<void*> MakeHandle(int descriptor, const OpenPlan& plan, uint32_t flags) {
  Slot* slot = HasDirectTransfers(descriptor) ? TakeSlot() : nullptr;
  if (slot == nullptr) {
    const uint32_t error = HasDirectTransfers(descriptor) ? ENOMEM : EINVAL;
    static_cast<void>(CloseOnce(descriptor));
    return {false, error, kNoFile};
  }
  auto* file = ContentOf<DirectFile>(slot);
  file->descriptor = descriptor;
  file->overlapped = (flags & kOverlapped) != 0;
  file->transfers = plan.uses != 0;
  file->deleteOnClose = (flags & kDeleteOnClose) != 0;
  return {true, 0, PublishContent<DirectFile>(slot)};
}

}  // namespace

Result DirectFile::End() {
  if (deleteOnClose) RemoveNameOf(descriptor);
  return CloseOnce(descriptor);
}

ValueResult<void*> OpenDirectFile(const char* path, uint32_t access, uint32_t shareMode,
                                  uint32_t disposition, uint32_t flags) {
  OpenPlan plan;
  if (!TranslateAccess(access, &plan) || !TranslateShare(shareMode, &plan) ||
      !TranslateDisposition(disposition, &plan) || !TranslateFlags(flags, &plan)) {
    return {false, EINVAL, kNoFile};
  }
  const OpenedFile opened = OpenFile(path, plan);
  if (opened.descriptor == -1) return {false, opened.error, kNoFile};
  return MakeHandle(opened.descriptor, plan, flags);
}

// A transfer that is in flight keeps the kernel's file open until it has ended.
Result CloseDirectFile(void* file) { return CloseSlot<DirectFile>(file); }

Result RemoveDirectFile(const char* path) { return RemoveName(path); }

// The record alone tells the outcome, so the file may be closed already.
ValueResult<uint32_t> TransferOutcome(void* /*file*/, KivSdNoWaitCb* record) {
  if (StatusIn(record) == kErrorTransferPending) CollectEndedTransfers();
  const uint32_t status = StatusIn(record);
  return {status == 0, status, static_cast<uint32_t>(record->internalBytes)};
}

ValueResult<uint32_t> DirectFileSize(void* file) {
  const DirectFileUse use(file);
  if (!use) return {false, EBADF, 0};
  struct stat status;
  if (fstat(use->descriptor, &status) == -1) return {false, static_cast<uint32_t>(errno), 0};
  const auto size = static_cast<uint32_t>(status.st_size);
  if (size == UINT32_MAX) return {false, EOVERFLOW, 0};
  return {true, 0, size};
}

Result EndFileAtPosition(void* file) {
  const DirectFileUse use(file);
  if (!use) return {false, EBADF};
  const off_t position = lseek(use->descriptor, 0, SEEK_CUR);
  if (position == -1) return {false, static_cast<uint32_t>(errno)};
  return ResizeFile(use->descriptor, position);
}

}  // namespace kiv::os
