#include "os/folders.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;

constexpr uint32_t kBothPermissions = 0x180;

KIV_SEAM_PRIMITIVE(ChangeFolder, "_ZN3kiv2os12ChangeFolderEPKc")
KIV_SEAM_PRIMITIVE(MakeFolder, "_ZN3kiv2os10MakeFolderEPKc")
KIV_SEAM_PRIMITIVE(RemoveFolder, "_ZN3kiv2os12RemoveFolderEPKc")
KIV_SEAM_PRIMITIVE(MakeWritable, "_ZN3kiv2os12MakeWritableEPKc")

namespace {

int32_t ChangeDirectory(const char* path) { return ToZero(RealChangeFolder(path)); }
int32_t MakeDirectory(const char* path) { return ToZero(RealMakeFolder(path)); }
int32_t RemoveDirectory(const char* path) { return ToZero(RealRemoveFolder(path)); }
int32_t ChangeMode(const char* path, uint32_t) { return ToZero(RealMakeWritable(path)); }

SeamImport<decltype(ChangeDirectory)> changeDirectory("_chdir", ChangeDirectory);
SeamImport<decltype(MakeDirectory)> makeDirectory("_mkdir", MakeDirectory);
SeamImport<decltype(RemoveDirectory)> removeDirectory("_rmdir", RemoveDirectory);
SeamImport<decltype(ChangeMode)> changeMode("_chmod", ChangeMode);

}  // namespace

Result WrapChangeFolder(const char* path) { return FromZero(changeDirectory.Call(path)); }
Result WrapMakeFolder(const char* path) { return FromZero(makeDirectory.Call(path)); }
Result WrapRemoveFolder(const char* path) { return FromZero(removeDirectory.Call(path)); }
Result WrapMakeWritable(const char* path) {
  return FromZero(changeMode.Call(path, kBothPermissions));
}

}  // namespace kiv::test
