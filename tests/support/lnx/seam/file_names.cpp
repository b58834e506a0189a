#include "os/file_names.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(IsAccessible, "_ZN3kiv2os12IsAccessibleEPKcj")
KIV_SEAM_PRIMITIVE(RemoveFileByName, "_ZN3kiv2os16RemoveFileByNameEPKc")
KIV_SEAM_PRIMITIVE(MakeTemporaryName, "_ZN3kiv2os17MakeTemporaryNameEPKc")
KIV_SEAM_PRIMITIVE(RuntimeProcessId, "_ZN3kiv2os16RuntimeProcessIdEv")

namespace {

int32_t Access(const char* path, uint32_t mode) { return RealIsAccessible(path, mode) ? 0 : -1; }
int32_t Unlink(const char* path) { return ToZero(RealRemoveFileByName(path)); }

char* TemporaryName(const char*, const char* prefix) {
  return ToValue(RealMakeTemporaryName(prefix));
}

int32_t GetProcessId() { return RealRuntimeProcessId(); }

SeamImport<decltype(Access)> access("_access", Access);
SeamImport<decltype(Unlink)> unlink("_unlink", Unlink);
SeamImport<decltype(TemporaryName)> temporaryName("_tempnam", TemporaryName);
SeamImport<decltype(GetProcessId)> getProcessId("_getpid", GetProcessId);

}  // namespace

bool WrapIsAccessible(const char* path, uint32_t mode) { return access.Call(path, mode) == 0; }
Result WrapRemoveFileByName(const char* path) { return FromZero(unlink.Call(path)); }

ValueResult<char*> WrapMakeTemporaryName(const char* prefix) {
  const char* const runtimesFolder = nullptr;
  char* name = temporaryName.Call(runtimesFolder, prefix);
  if (name != nullptr) return {true, 0, name};
  return {false, static_cast<uint32_t>(errno), nullptr};
}

int32_t WrapRuntimeProcessId() { return getProcessId.Call(); }

}  // namespace kiv::test
