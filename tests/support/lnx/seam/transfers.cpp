#include "os/transfers.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Origin;
using os::ValueResult;

constexpr uint32_t kNoPosition = 0xFFFFFFFF;

KIV_SEAM_PRIMITIVE(ReadSystemFile, "_ZN3kiv2os14ReadSystemFileEPvS1_jP13KivSdNoWaitCb")
KIV_SEAM_PRIMITIVE(WriteSystemFile, "_ZN3kiv2os15WriteSystemFileEPvPKvjP13KivSdNoWaitCb")
KIV_SEAM_PRIMITIVE(MoveFilePointer, "_ZN3kiv2os15MoveFilePointerEPviNS0_6OriginE")

namespace {

int32_t ToTransferred(const ValueResult<uint32_t>& moved, uint32_t* count) {
  *count = moved.value;
  return ToBool({moved.ok, moved.error});
}

int32_t ReadFile(void* file, void* buffer, uint32_t length, uint32_t* count,
                 KivSdNoWaitCb* record) {
  return ToTransferred(RealReadSystemFile(file, buffer, length, record), count);
}

int32_t WriteFile(void* file, const void* buffer, uint32_t length, uint32_t* count,
                  KivSdNoWaitCb* record) {
  return ToTransferred(RealWriteSystemFile(file, buffer, length, record), count);
}

uint32_t SetFilePointer(void* file, int32_t distance, int32_t*, uint32_t origin) {
  const ValueResult<uint32_t> moved =
      RealMoveFilePointer(file, distance, static_cast<Origin>(origin));
  StoreError({moved.ok, moved.error});
  return moved.ok ? moved.value : kNoPosition;
}

SeamImport<decltype(ReadFile)> readFile("ReadFile", ReadFile);
SeamImport<decltype(WriteFile)> writeFile("WriteFile", WriteFile);
SeamImport<decltype(SetFilePointer)> setFilePointer("SetFilePointer", SetFilePointer);

ValueResult<uint32_t> FromTransferred(int32_t succeeded, uint32_t count) {
  const os::Result result = FromBool(succeeded);
  return {result.ok, result.error, count};
}

}  // namespace

ValueResult<uint32_t> WrapReadSystemFile(void* file, void* buffer, uint32_t length,
                                         KivSdNoWaitCb* record) {
  uint32_t count = 0;
  const int32_t succeeded = readFile.Call(file, buffer, length, &count, record);
  return FromTransferred(succeeded, count);
}

ValueResult<uint32_t> WrapWriteSystemFile(void* file, const void* buffer, uint32_t length,
                                          KivSdNoWaitCb* record) {
  uint32_t count = 0;
  const int32_t succeeded = writeFile.Call(file, buffer, length, &count, record);
  return FromTransferred(succeeded, count);
}

ValueResult<uint32_t> WrapMoveFilePointer(void* file, int32_t distance, Origin origin) {
  int32_t* const noHighPart = nullptr;
  const uint32_t position =
      setFilePointer.Call(file, distance, noHighPart, static_cast<uint32_t>(origin));
  if (position != kNoPosition) return {true, 0, position};
  return {false, SeamLastError(), 0};
}

}  // namespace kiv::test
