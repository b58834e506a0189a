#include "os/named_pipes.h"

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

ValueResult<void*> FromFile(HANDLE file) {
  if (file != INVALID_HANDLE_VALUE) return {true, 0, file};
  return {false, GetLastError(), file};
}

}  // namespace

const uint32_t kErrorPipeConnected = ERROR_PIPE_CONNECTED;
const uint32_t kPipeOverlapped = FILE_FLAG_OVERLAPPED;

static_assert(kAccessListBytes >= SECURITY_DESCRIPTOR_MIN_LENGTH);

Result PrepareAccessList(void* storage) {
  return FromBool(InitializeSecurityDescriptor(storage, SECURITY_DESCRIPTOR_REVISION));
}

Result OpenAccessListToAll(void* storage) {
  return FromBool(SetSecurityDescriptorDacl(storage, TRUE, nullptr, FALSE));
}

ValueResult<void*> MakeNamedPipe(const char* path, const NamedPipeShape& shape, void* accessList) {
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, accessList, TRUE};
  return FromFile(CreateNamedPipeA(path, shape.openMode, shape.pipeMode, shape.maximumInstances,
                                   shape.outBytes, shape.inBytes, shape.defaultTimeoutMs,
                                   &attributes));
}

ValueResult<void*> OpenPipeFile(const char* path, uint32_t access, uint32_t shareMode,
                                uint32_t disposition, uint32_t flags) {
  return FromFile(CreateFileA(path, access, shareMode, nullptr, disposition, flags, nullptr));
}

Result WaitForNamedPipe(const char* path, uint32_t timeoutMs) {
  return FromBool(WaitNamedPipeA(path, timeoutMs));
}

Result ConnectPipe(void* pipe) { return FromBool(ConnectNamedPipe(pipe, nullptr)); }

Result DisconnectPipe(void* pipe) { return FromBool(DisconnectNamedPipe(pipe)); }

ValueResult<PipeContent> PeekPipe(void* pipe, void* buffer, uint32_t sizeBytes) {
  DWORD read = 0;
  DWORD available = 0;
  DWORD left = 0;
  const Result result = FromBool(PeekNamedPipe(pipe, buffer, sizeBytes, &read, &available, &left));
  return {result.ok, result.error, {read, available, left}};
}

}  // namespace kiv::os
