#include "support/native_kernel.h"

#include <cstring>

#include "os/kernel_objects.h"
#include "os/named_pipes.h"

kiv::test::NativeKernel kiv::test::nativeKernel;

namespace kiv::os {
namespace {

using test::nativeKernel;

constexpr Result kDone = {true, 0};

void* const kHandle = &nativeKernel;

}  // namespace

// ---- Semaphores ----

ValueResult<void*> MakeSemaphore(const char*, int32_t, int32_t) {
  if (nativeKernel.semaphoresLeft == 0) return {false, 1, nullptr};
  --nativeKernel.semaphoresLeft;
  ++nativeKernel.openSemaphores;
  return {true, 0, kHandle};
}

Result CloseObject(void*) {
  --nativeKernel.openSemaphores;
  return kDone;
}

Wait WaitOne(void*, uint32_t) { return {kWaitSignalled, 0}; }
Result GiveSemaphore(void*, int32_t, int32_t*) { return kDone; }

// ---- Named pipes ----

const uint32_t kErrorPipeConnected = 1;
const uint32_t kPipeOverlapped = 2;

Result PrepareAccessList(void* storage) {
  std::memset(storage, 0, kAccessListBytes);
  return kDone;
}

Result OpenAccessListToAll(void*) { return kDone; }

ValueResult<void*> MakeNamedPipe(const char* path, const NamedPipeShape&, void* accessList) {
  nativeKernel.path = path;
  nativeKernel.accessList = accessList;
  return {true, 0, kHandle};
}

ValueResult<void*> OpenPipeFile(const char* path, uint32_t, uint32_t, uint32_t, uint32_t) {
  nativeKernel.path = path;
  return {true, 0, kHandle};
}

Result WaitForNamedPipe(const char* path, uint32_t) {
  nativeKernel.path = path;
  return kDone;
}

Result ConnectPipe(void*) { return kDone; }
Result DisconnectPipe(void*) { return kDone; }
ValueResult<PipeContent> PeekPipe(void*, void*, uint32_t) { return {true, 0, {0, 0, 0}}; }

}  // namespace kiv::os
