// Named pipes: create, open, wait, connect, disconnect and peek.
//
// Each operation reads the OS error of its call before it frees the path and the access list.
#include "kivsdu/manager.h"
#include "kivsdu/pipe.h"
#include "lease_guard.h"
#include "os/named_pipes.h"
#include "os/share_mode.h"
#include "sdipcw32/pipe_path.h"
#include "sdipcw32/report_pipe.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdipcw32";
constexpr uint32_t kLineCreatePathAlloc = 224;
constexpr uint32_t kLineAccessListAlloc = 239;
constexpr uint32_t kLineAccessListFree = 251;
constexpr uint32_t kLineCreatePathFree = 252;
constexpr uint32_t kLineOpenPathAlloc = 310;
constexpr uint32_t kLineOpenPathFree = 341;
constexpr uint32_t kLineWaitPathAlloc = 388;
constexpr uint32_t kLineWaitPathFree = 412;

// Makes the pipe with an access list that lets every user in: servers and their clients run as
// different users.
os::ValueResult<void*> MakeOpenPipe(const char* path, const os::NamedPipeShape& shape,
                                    void* accessList) {
  const os::Result prepared = os::PrepareAccessList(accessList);
  if (!prepared.ok) return {false, prepared.error, nullptr};
  const os::Result opened = os::OpenAccessListToAll(accessList);
  if (!opened.ok) return {false, opened.error, nullptr};
  return os::MakeNamedPipe(path, shape, accessList);
}

uint32_t CreateAt(KivSdContext* ctx, const char* path, const os::NamedPipeShape& shape,
                  KivHandle* pipe) {
  void* accessList = nullptr;
  const uint32_t allocated =
      adMalloc(nullptr, os::kAccessListBytes, &accessList, kSource, kLineAccessListAlloc);
  if (allocated != KIV_ST_OK) return Report(ctx, allocated, os::LastError());
  const os::ValueResult<void*> made = MakeOpenPipe(path, shape, accessList);
  *pipe = made.value;
  const uint32_t freed = adFree(accessList, kSource, kLineAccessListFree);
  if (!made.ok && made.error != 0) return Report(ctx, KIV_ST_PIPE_CREATE_NAMED, made.error);
  return Report(ctx, freed);
}

}  // namespace

uint32_t KivSdNamedPipeCreate(KivSdContext* ctx, const char* name, KivHandle* pipe,
                              uint32_t openMode, uint32_t pipeMode, uint32_t maximumInstances,
                              uint32_t outBytes, uint32_t inBytes, uint32_t defaultTimeoutMs) {
  RunLeaseGuard();
  if (name == nullptr || pipe == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const PipePath path(nullptr, name, kLineCreatePathAlloc, kLineCreatePathFree);
  if (path.status() != KIV_ST_OK) return Report(ctx, path.status(), path.osError());
  const os::NamedPipeShape shape = {openMode, pipeMode, maximumInstances,
                                    outBytes, inBytes,  defaultTimeoutMs};
  return CreateAt(ctx, path.text(), shape, pipe);
}

uint32_t KivSdNamedPipeOpen(KivSdContext* ctx, const char* server, const char* name,
                            KivHandle* pipe, uint32_t access, uint32_t shareMode,
                            uint32_t disposition, uint32_t flags) {
  RunLeaseGuard();
  if (server == nullptr || name == nullptr || pipe == nullptr) {
    return Report(ctx, KIV_ST_ARGUMENT);
  }
  const PipePath path(server, name, kLineOpenPathAlloc, kLineOpenPathFree);
  if (path.status() != KIV_ST_OK) return Report(ctx, path.status(), path.osError());
  // In failover mode a node that takes over opens pipes that the failed node may still hold.
  const uint32_t sharing = KivSdIsFailoverMode() != 0 ? os::kShareAll : shareMode;
  const os::ValueResult<void*> opened =
      os::OpenPipeFile(path.text(), access, sharing, disposition, flags | os::kPipeOverlapped);
  *pipe = opened.value;
  return ReportUnlessErrorless(ctx, opened, KIV_ST_PIPE_OPEN);
}

uint32_t KivSdNamedPipeWait(KivSdContext* ctx, const char* server, const char* name,
                            uint32_t timeoutMs) {
  RunLeaseGuard();
  if (server == nullptr || name == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const PipePath path(server, name, kLineWaitPathAlloc, kLineWaitPathFree);
  if (path.status() != KIV_ST_OK) return Report(ctx, path.status(), path.osError());
  return ReportUnlessErrorless(ctx, os::WaitForNamedPipe(path.text(), timeoutMs), KIV_ST_PIPE_WAIT);
}

// Compatibility: succeeds only if a client had connected before the call. A client that connects
// during the wait is reported as a failure with OS error 0. Hosts treat both as connected.
uint32_t KivSdNamedPipeConnect(KivSdContext* ctx, KivHandle* pipe) {
  RunLeaseGuard();
  if (pipe == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result connected = os::ConnectPipe(*pipe);
  if (connected.ok) return Report(ctx, KIV_ST_PIPE_CONNECT);
  const bool before = connected.error == os::kErrorPipeConnected;
  return Report(ctx, before ? KIV_ST_OK : KIV_ST_PIPE_CONNECT, connected.error);
}

uint32_t KivSdNamedPipeDisconnect(KivSdContext* ctx, KivHandle* pipe) {
  if (pipe == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportUnlessErrorless(ctx, os::DisconnectPipe(*pipe), KIV_ST_PIPE_DISCONNECT);
}

uint32_t KivSdNamedPipePeek(KivSdContext* ctx, KivHandle* pipe, uint32_t bufferBytes, void* buffer,
                            uint32_t* bytesRead, uint32_t* bytesAvailable, uint32_t* bytesLeft) {
  RunLeaseGuard();
  if (pipe == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<os::PipeContent> content = os::PeekPipe(*pipe, buffer, bufferBytes);
  if (content.ok) {
    if (bytesRead != nullptr) *bytesRead = content.value.read;
    if (bytesAvailable != nullptr) *bytesAvailable = content.value.available;
    if (bytesLeft != nullptr) *bytesLeft = content.value.left;
  }
  return ReportUnlessErrorless(ctx, content, KIV_ST_PIPE_PEEK);
}
