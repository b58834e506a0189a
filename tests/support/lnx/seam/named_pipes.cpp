#include "os/named_pipes.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::NamedPipeShape;
using os::PipeContent;
using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(PrepareAccessList, "_ZN3kiv2os17PrepareAccessListEPv")
KIV_SEAM_PRIMITIVE(OpenAccessListToAll, "_ZN3kiv2os19OpenAccessListToAllEPv")
KIV_SEAM_PRIMITIVE(MakeNamedPipe, "_ZN3kiv2os13MakeNamedPipeEPKcRKNS0_14NamedPipeShapeEPv")
KIV_SEAM_PRIMITIVE(OpenPipeFile, "_ZN3kiv2os12OpenPipeFileEPKcjjjj")
KIV_SEAM_PRIMITIVE(WaitForNamedPipe, "_ZN3kiv2os16WaitForNamedPipeEPKcj")
KIV_SEAM_PRIMITIVE(ConnectPipe, "_ZN3kiv2os11ConnectPipeEPv")
KIV_SEAM_PRIMITIVE(DisconnectPipe, "_ZN3kiv2os14DisconnectPipeEPv")
KIV_SEAM_PRIMITIVE(PeekPipe, "_ZN3kiv2os8PeekPipeEPvS1_j")

namespace {

void* InvalidHandle() { return reinterpret_cast<void*>(intptr_t{-1}); }

int32_t InitializeSecurityDescriptor(void* storage, uint32_t) {
  return ToBool(RealPrepareAccessList(storage));
}

int32_t SetSecurityDescriptorDacl(void* storage, int32_t, void*, int32_t) {
  return ToBool(RealOpenAccessListToAll(storage));
}

// The attributes are the access list itself.
void* CreateNamedPipeA(const char* path, uint32_t openMode, uint32_t pipeMode, uint32_t instances,
                       uint32_t outBytes, uint32_t inBytes, uint32_t timeoutMs, void* attributes) {
  const NamedPipeShape shape = {openMode, pipeMode, instances, outBytes, inBytes, timeoutMs};
  return ToValue(RealMakeNamedPipe(path, shape, attributes));
}

void* CreateFileA(const char* path, uint32_t access, uint32_t shareMode, void*,
                  uint32_t disposition, uint32_t flags, void*) {
  return ToValue(RealOpenPipeFile(path, access, shareMode, disposition, flags));
}

int32_t WaitNamedPipeA(const char* path, uint32_t timeoutMs) {
  return ToBool(RealWaitForNamedPipe(path, timeoutMs));
}

int32_t ConnectNamedPipe(void* pipe, void*) { return ToBool(RealConnectPipe(pipe)); }

int32_t DisconnectNamedPipe(void* pipe) { return ToBool(RealDisconnectPipe(pipe)); }

int32_t PeekNamedPipe(void* pipe, void* buffer, uint32_t sizeBytes, uint32_t* read,
                      uint32_t* available, uint32_t* left) {
  const ValueResult<PipeContent> content = RealPeekPipe(pipe, buffer, sizeBytes);
  *read = content.value.read;
  *available = content.value.available;
  *left = content.value.left;
  return ToBool({content.ok, content.error});
}

SeamImport<decltype(InitializeSecurityDescriptor)> initializeDescriptor(
    "InitializeSecurityDescriptor", InitializeSecurityDescriptor);
SeamImport<decltype(SetSecurityDescriptorDacl)> setDescriptorList("SetSecurityDescriptorDacl",
                                                                  SetSecurityDescriptorDacl);
SeamImport<decltype(CreateNamedPipeA)> createNamedPipe("CreateNamedPipeA", CreateNamedPipeA);
SeamImport<decltype(CreateFileA)> createFile("CreateFileA", CreateFileA);
SeamImport<decltype(WaitNamedPipeA)> waitNamedPipe("WaitNamedPipeA", WaitNamedPipeA);
SeamImport<decltype(ConnectNamedPipe)> connectNamedPipe("ConnectNamedPipe", ConnectNamedPipe);
SeamImport<decltype(DisconnectNamedPipe)> disconnectNamedPipe("DisconnectNamedPipe",
                                                              DisconnectNamedPipe);
SeamImport<decltype(PeekNamedPipe)> peekNamedPipe("PeekNamedPipe", PeekNamedPipe);

ValueResult<void*> FromFile(void* file) {
  if (file != InvalidHandle()) return {true, 0, file};
  return {false, SeamLastError(), file};
}

}  // namespace

Result WrapPrepareAccessList(void* storage) {
  constexpr uint32_t kRevision = 1;
  return FromBool(initializeDescriptor.Call(storage, kRevision));
}

Result WrapOpenAccessListToAll(void* storage) {
  return FromBool(setDescriptorList.Call(storage, 1, nullptr, 0));
}

ValueResult<void*> WrapMakeNamedPipe(const char* path, const NamedPipeShape& shape,
                                     void* accessList) {
  return FromFile(createNamedPipe.Call(path, shape.openMode, shape.pipeMode, shape.maximumInstances,
                                       shape.outBytes, shape.inBytes, shape.defaultTimeoutMs,
                                       accessList));
}

ValueResult<void*> WrapOpenPipeFile(const char* path, uint32_t access, uint32_t shareMode,
                                    uint32_t disposition, uint32_t flags) {
  return FromFile(createFile.Call(path, access, shareMode, nullptr, disposition, flags, nullptr));
}

Result WrapWaitForNamedPipe(const char* path, uint32_t timeoutMs) {
  return FromBool(waitNamedPipe.Call(path, timeoutMs));
}

Result WrapConnectPipe(void* pipe) { return FromBool(connectNamedPipe.Call(pipe, nullptr)); }

Result WrapDisconnectPipe(void* pipe) { return FromBool(disconnectNamedPipe.Call(pipe)); }

ValueResult<PipeContent> WrapPeekPipe(void* pipe, void* buffer, uint32_t sizeBytes) {
  PipeContent content = {0, 0, 0};
  const Result result = FromBool(peekNamedPipe.Call(pipe, buffer, sizeBytes, &content.read,
                                                    &content.available, &content.left));
  return {result.ok, result.error, content};
}

}  // namespace kiv::test
