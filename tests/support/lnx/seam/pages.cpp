#include "os/pages.h"

#include <stddef.h>

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

constexpr uint32_t kCommit = 0x1000;
constexpr uint32_t kReadWrite = 0x04;
constexpr uint32_t kRelease = 0x8000;

KIV_SEAM_PRIMITIVE(CommitPages, "_ZN3kiv2os11CommitPagesEm")
KIV_SEAM_PRIMITIVE(ReleasePages, "_ZN3kiv2os12ReleasePagesEPv")
KIV_SEAM_PRIMITIVE(LockPages, "_ZN3kiv2os9LockPagesEPvm")
KIV_SEAM_PRIMITIVE(UnlockPages, "_ZN3kiv2os11UnlockPagesEPvm")

namespace {

void* VirtualAlloc(void*, size_t sizeBytes, uint32_t, uint32_t) {
  return ToValue(RealCommitPages(sizeBytes));
}

int32_t VirtualFree(void* address, size_t, uint32_t) { return ToBool(RealReleasePages(address)); }

int32_t VirtualLock(void* address, size_t sizeBytes) {
  return ToBool(RealLockPages(address, sizeBytes));
}

int32_t VirtualUnlock(void* address, size_t sizeBytes) {
  return ToBool(RealUnlockPages(address, sizeBytes));
}

SeamImport<decltype(VirtualAlloc)> virtualAlloc("VirtualAlloc", VirtualAlloc);
SeamImport<decltype(VirtualFree)> virtualFree("VirtualFree", VirtualFree);
SeamImport<decltype(VirtualLock)> virtualLock("VirtualLock", VirtualLock);
SeamImport<decltype(VirtualUnlock)> virtualUnlock("VirtualUnlock", VirtualUnlock);

}  // namespace

ValueResult<void*> WrapCommitPages(uint64_t sizeBytes) {
  return FromPointer(virtualAlloc.Call(nullptr, sizeBytes, kCommit, kReadWrite));
}

Result WrapReleasePages(void* address) {
  return FromBool(virtualFree.Call(address, size_t{0}, kRelease));
}

Result WrapLockPages(void* address, uint64_t sizeBytes) {
  return FromBool(virtualLock.Call(address, sizeBytes));
}

Result WrapUnlockPages(void* address, uint64_t sizeBytes) {
  return FromBool(virtualUnlock.Call(address, sizeBytes));
}

}  // namespace kiv::test
