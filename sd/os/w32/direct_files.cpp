#include "os/direct_files.h"

#include "kivsdu/directio.h"
#include "os/share_mode.h"
#include "os/transfers.h"
#include "os/w32/win32.h"

namespace kiv::os {
namespace {

static_assert(sizeof(KivSdNoWaitCb) == sizeof(OVERLAPPED));
static_assert(offsetof(KivSdNoWaitCb, internalStatus) == offsetof(OVERLAPPED, Internal));
static_assert(offsetof(KivSdNoWaitCb, internalBytes) == offsetof(OVERLAPPED, InternalHigh));
static_assert(offsetof(KivSdNoWaitCb, offsetLow) == offsetof(OVERLAPPED, Offset));
static_assert(offsetof(KivSdNoWaitCb, offsetHigh) == offsetof(OVERLAPPED, OffsetHigh));
static_assert(offsetof(KivSdNoWaitCb, event) == offsetof(OVERLAPPED, hEvent));

}  // namespace

const uint32_t kErrorSharingViolation = ERROR_SHARING_VIOLATION;
const uint32_t kErrorEndOfFile = ERROR_HANDLE_EOF;
const uint32_t kErrorTransferPending = ERROR_IO_PENDING;

static_assert(kShareAll == (FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
static_assert(kAccessWrite == GENERIC_WRITE);
static_assert(kOpenOrMake == OPEN_ALWAYS);
static_assert(static_cast<uint32_t>(Origin::kBeginning) == FILE_BEGIN);
static_assert(static_cast<uint32_t>(Origin::kPosition) == FILE_CURRENT);
static_assert(static_cast<uint32_t>(Origin::kEnd) == FILE_END);

ValueResult<void*> OpenDirectFile(const char* path, uint32_t access, uint32_t shareMode,
                                  uint32_t disposition, uint32_t flags) {
  HANDLE file = CreateFileA(path, access, shareMode, nullptr, disposition,
                            flags | FILE_FLAG_NO_BUFFERING, nullptr);
  if (file != INVALID_HANDLE_VALUE) return {true, 0, file};
  return {false, GetLastError(), file};
}

Result CloseDirectFile(void* file) { return FromBool(CloseHandle(file)); }

Result RemoveDirectFile(const char* path) { return FromBool(DeleteFileA(path)); }

ValueResult<uint32_t> TransferOutcome(void* file, KivSdNoWaitCb* record) {
  DWORD count = 0;
  const Result ended = FromBool(GetOverlappedResult(file, SystemRecord(record), &count, FALSE));
  return {ended.ok, ended.error, count};
}

ValueResult<uint32_t> DirectFileSize(void* file) {
  const DWORD size = GetFileSize(file, nullptr);
  if (size != INVALID_FILE_SIZE) return {true, 0, size};
  return {false, GetLastError(), 0};
}

Result EndFileAtPosition(void* file) { return FromBool(SetEndOfFile(file)); }

}  // namespace kiv::os
