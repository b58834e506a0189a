#include "os/shared_memory.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

constexpr int32_t kInherited = 1;

KIV_SEAM_PRIMITIVE(MakeBlock, "_ZN3kiv2os9MakeBlockEPKcjj")
KIV_SEAM_PRIMITIVE(OpenBlock, "_ZN3kiv2os9OpenBlockEPKcj")
KIV_SEAM_PRIMITIVE(CloseBlock, "_ZN3kiv2os10CloseBlockEPv")
KIV_SEAM_PRIMITIVE(MapBlock, "_ZN3kiv2os8MapBlockEPvjj")
KIV_SEAM_PRIMITIVE(UnmapBlock, "_ZN3kiv2os10UnmapBlockEPv")

namespace {

// The handle of no file.
void* PagingFile() { return reinterpret_cast<void*>(UINTPTR_MAX); }

void* CreateFileMappingA(void*, void*, uint32_t protection, uint32_t, uint32_t sizeBytes,
                         const char* name) {
  return ToValue(RealMakeBlock(name, sizeBytes, protection));
}

void* OpenFileMappingA(uint32_t access, int32_t, const char* name) {
  return ToValue(RealOpenBlock(name, access));
}

int32_t CloseHandle(void* block) { return ToBool(RealCloseBlock(block)); }

void* MapViewOfFile(void* block, uint32_t access, uint32_t, uint32_t, uint64_t sizeBytes) {
  return ToValue(RealMapBlock(block, access, static_cast<uint32_t>(sizeBytes)));
}

int32_t UnmapViewOfFile(void* view) { return ToBool(RealUnmapBlock(view)); }

SeamImport<decltype(CreateFileMappingA)> createFileMapping("CreateFileMappingA",
                                                           CreateFileMappingA);
SeamImport<decltype(OpenFileMappingA)> openFileMapping("OpenFileMappingA", OpenFileMappingA);
SeamImport<decltype(CloseHandle)> closeHandle("CloseHandle", CloseHandle);
SeamImport<decltype(MapViewOfFile)> mapViewOfFile("MapViewOfFile", MapViewOfFile);
SeamImport<decltype(UnmapViewOfFile)> unmapViewOfFile("UnmapViewOfFile", UnmapViewOfFile);

}  // namespace

ValueResult<void*> WrapMakeBlock(const char* name, uint32_t sizeBytes, uint32_t protection) {
  return FromPointer(
      createFileMapping.Call(PagingFile(), nullptr, protection, 0u, sizeBytes, name));
}

ValueResult<void*> WrapOpenBlock(const char* name, uint32_t access) {
  return FromPointer(openFileMapping.Call(access, kInherited, name));
}

Result WrapCloseBlock(void* block) { return FromBool(closeHandle.Call(block)); }

ValueResult<void*> WrapMapBlock(void* block, uint32_t access, uint32_t sizeBytes) {
  return FromPointer(mapViewOfFile.Call(block, access, 0u, 0u, uint64_t{sizeBytes}));
}

Result WrapUnmapBlock(void* view) { return FromBool(unmapViewOfFile.Call(view)); }

}  // namespace kiv::test
