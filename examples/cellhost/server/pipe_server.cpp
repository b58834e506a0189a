// Instances of the control pipe; see pipe_server.h.
#include "server/pipe_server.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/pipe.h"
#include "kivsdu/status.h"
#include "server/protocol.h"

namespace cellhost {
namespace {

constexpr char kThisMachine[] = "local";

// The system's flags. Every user may open the pipe, so at least no other machine should.
constexpr uint32_t kBothWays = 3;
constexpr uint32_t kFirstInstance = 0x00080000;
constexpr uint32_t kBytesFromThisMachine = 8;
constexpr uint32_t kDefaultWaitMs = 1000;
constexpr uint32_t kReadOnly = 0x80000000;
constexpr uint32_t kNoSharing = 0;
constexpr uint32_t kOpenExisting = 3;

// The system's errors of a connect.
constexpr uint32_t kErrorNone = 0;
constexpr uint32_t kErrorPipeConnected = 535;  // the client had come before
constexpr uint32_t kErrorNoData = 232;         // and had gone

}  // namespace

PipeServer::PipeServer() : PipeEnd(kRequestBytesMax) {}

bool PipeServer::Create(const char* name, uint32_t instances, bool first) {
  if (!MakeRoomToSend(kShortReplyBytes)) return false;
  KivSdContext* ctx = ThisContext();
  const uint32_t openMode = kBothWays | (first ? kFirstInstance : 0);
  const uint32_t status =
      KivSdNamedPipeCreate(ctx, name, &pipe_, openMode, kBytesFromThisMachine, instances,
                           kReplyBufferBytes, kRequestBufferBytes, kDefaultWaitMs);
  if (status == 0) return true;
  pipe_ = nullptr;
  return Complain(
      "could not make the pipe '%s': %s; if another server has the name, give another with --pipe",
      name, ReasonOf(ctx, status).text);
}

Accepted PipeServer::Accept() {
  KivSdContext* ctx = ThisContext();
  const uint32_t status = KivSdNamedPipeConnect(ctx, &pipe_);
  // Two outcomes are a client: it came before the call, or during it.
  if (status == 0 && ctx->osError == kErrorPipeConnected) return Accepted::kClient;
  if (status == KIV_ST_PIPE_CONNECT && ctx->osError == kErrorNone) return Accepted::kClient;
  if (ctx->osError == kErrorNoData) return Accepted::kCameAndWent;
  Succeeded(ctx, status, "wait for a client");
  return Accepted::kFailed;
}

void PipeServer::CutOff() {
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdNamedPipeDisconnect(ctx, &pipe_), "disconnect a client");
}

void WakeAccept(const char* name) {
  KivSdContext* ctx = ThisContext();
  KivHandle pipe = nullptr;
  const uint32_t status =
      KivSdNamedPipeOpen(ctx, kThisMachine, name, &pipe, kReadOnly, kNoSharing, kOpenExisting, 0);
  if (status != 0) return;  // no thread waits in Accept, or another client wakes it
  Succeeded(ctx, KivSdPipeClose(ctx, &pipe), "close the pipe");
}

}  // namespace cellhost
