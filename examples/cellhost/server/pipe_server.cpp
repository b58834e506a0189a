// Instances of the control pipe; see pipe_server.h.
#include "server/pipe_server.h"

#include "channel/protocol.h"
#include "host/complain.h"
#include "host/platform.h"
#include "host/thread_record.h"
#include "kivsdu/pipe.h"
#include "kivsdu/status.h"

namespace cellhost {
namespace {

// Every user may open the pipe; at least refuse other machines.
constexpr uint32_t kPipeMode = KIV_PIPE_BYTES | KIV_PIPE_REJECT_REMOTE;
constexpr uint32_t kDefaultWaitMs = 1000;

constexpr uint32_t kErrorNone = 0;

}  // namespace

PipeServer::PipeServer() : PipeEnd(kRequestBytesMax) {}

bool PipeServer::Create(const char* name, uint32_t instances, bool first) {
  if (!MakeRoomToSend(kShortReplyBytes)) return false;
  KivSdContext* ctx = ThisContext();
  const uint32_t openMode = KIV_PIPE_DUPLEX | (first ? KIV_PIPE_FIRST_INSTANCE : 0);
  const uint32_t status =
      KivSdNamedPipeCreate(ctx, name, &pipe_, openMode, kPipeMode, instances, kReplyBufferBytes,
                           kRequestBufferBytes, kDefaultWaitMs);
  if (status == 0) return true;
  pipe_ = nullptr;
  return Complain(
      "could not make the pipe '%s': %s; if another server has the name, give another with --pipe",
      name, ReasonOf(ctx, status).text);
}

Accepted PipeServer::Accept() {
  KivSdContext* ctx = ThisContext();
  const uint32_t status = KivSdNamedPipeConnect(ctx, &pipe_);
  // A client came before the call, or during the call.
  if (status == 0 && ctx->osError == KIV_PIPE_CONNECTED_BEFORE) return Accepted::kClient;
  if (status == KIV_ST_PIPE_CONNECT && ctx->osError == kErrorNone) return Accepted::kClient;
  if (ctx->osError == kPipeErrors.gone) return Accepted::kCameAndWent;
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
      KivSdNamedPipeOpen(ctx, KIV_PIPE_THIS_MACHINE, name, &pipe, KIV_ACCESS_READ, KIV_SHARE_NONE,
                         KIV_DISPOSITION_OPEN_EXISTING, 0);
  if (status != 0) return;  // no thread waits in Accept, or another client wakes it
  Succeeded(ctx, KivSdPipeClose(ctx, &pipe), "close the pipe");
}

}  // namespace cellhost
