#include "os/direct_files.h"

#include "kivsdu/directio.h"
#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

constexpr intptr_t kInvalidHandle = -1;
constexpr uint32_t kUnbuffered = 0x20000000;
constexpr uint32_t kNoSize = 0xFFFFFFFF;

KIV_SEAM_PRIMITIVE(OpenDirectFile, "_ZN3kiv2os14OpenDirectFileEPKcjjjj")
KIV_SEAM_PRIMITIVE(CloseDirectFile, "_ZN3kiv2os15CloseDirectFileEPv")
KIV_SEAM_PRIMITIVE(RemoveDirectFile, "_ZN3kiv2os16RemoveDirectFileEPKc")
KIV_SEAM_PRIMITIVE(TransferOutcome, "_ZN3kiv2os15TransferOutcomeEPvP13KivSdNoWaitCb")
KIV_SEAM_PRIMITIVE(DirectFileSize, "_ZN3kiv2os14DirectFileSizeEPv")
KIV_SEAM_PRIMITIVE(EndFileAtPosition, "_ZN3kiv2os17EndFileAtPositionEPv")

namespace {

void* CreateFile(const char* path, uint32_t access, uint32_t shareMode, void*, uint32_t disposition,
                 uint32_t flags, void*) {
  return ToValue(RealOpenDirectFile(path, access, shareMode, disposition, flags));
}

int32_t CloseHandle(void* file) { return ToBool(RealCloseDirectFile(file)); }
int32_t DeleteFile(const char* path) { return ToBool(RealRemoveDirectFile(path)); }

int32_t GetOverlappedResult(void* file, KivSdNoWaitCb* record, uint32_t* count, int32_t) {
  const ValueResult<uint32_t> outcome = RealTransferOutcome(file, record);
  *count = outcome.value;
  return ToBool({outcome.ok, outcome.error});
}

uint32_t GetFileSize(void* file, uint32_t*) {
  const ValueResult<uint32_t> size = RealDirectFileSize(file);
  StoreError({size.ok, size.error});
  return size.ok ? size.value : kNoSize;
}

int32_t SetEndOfFile(void* file) { return ToBool(RealEndFileAtPosition(file)); }

SeamImport<decltype(CreateFile)> createFile("CreateFileA", CreateFile);
SeamImport<decltype(CloseHandle)> closeHandle("CloseHandle", CloseHandle);
SeamImport<decltype(DeleteFile)> deleteFile("DeleteFileA", DeleteFile);
SeamImport<decltype(GetOverlappedResult)> getOutcome("GetOverlappedResult", GetOverlappedResult);
SeamImport<decltype(GetFileSize)> getFileSize("GetFileSize", GetFileSize);
SeamImport<decltype(SetEndOfFile)> setEndOfFile("SetEndOfFile", SetEndOfFile);

}  // namespace

ValueResult<void*> WrapOpenDirectFile(const char* path, uint32_t access, uint32_t shareMode,
                                      uint32_t disposition, uint32_t flags) {
  void* const none = nullptr;
  void* file =
      createFile.Call(path, access, shareMode, none, disposition, flags | kUnbuffered, none);
  if (reinterpret_cast<intptr_t>(file) != kInvalidHandle) return {true, 0, file};
  return {false, SeamLastError(), file};
}

Result WrapCloseDirectFile(void* file) { return FromBool(closeHandle.Call(file)); }
Result WrapRemoveDirectFile(const char* path) { return FromBool(deleteFile.Call(path)); }

ValueResult<uint32_t> WrapTransferOutcome(void* file, KivSdNoWaitCb* record) {
  uint32_t count = 0;
  const int32_t doNotWait = 0;
  const Result ended = FromBool(getOutcome.Call(file, record, &count, doNotWait));
  return {ended.ok, ended.error, count};
}

ValueResult<uint32_t> WrapDirectFileSize(void* file) {
  uint32_t* const noHighPart = nullptr;
  const uint32_t size = getFileSize.Call(file, noHighPart);
  if (size != kNoSize) return {true, 0, size};
  return {false, SeamLastError(), 0};
}

Result WrapEndFileAtPosition(void* file) { return FromBool(setEndOfFile.Call(file)); }

}  // namespace kiv::test
