// Requests over the control pipe; see pipe_client.h.
#include "client/pipe_client.h"

#include <algorithm>

#include "channel/protocol.h"
#include "host/complain.h"
#include "host/platform.h"
#include "host/thread_record.h"
#include "kivsdu/pipe.h"

namespace cellhost {
namespace {

constexpr char kSourceRequest[] = "cellhost/pipe_client request";

constexpr uint32_t kReadAndWrite = KIV_ACCESS_READ | KIV_ACCESS_WRITE;

constexpr uint32_t kWaitOnceMs = 200;
constexpr uint32_t kBusyWaitMs = 10 * 1000;
constexpr uint32_t kReplyWaitMs = 30 * 1000;

}  // namespace

PipeClient::PipeClient() : PipeEnd(kReplyBytesMax) {}

// Opening may fail even after a successful wait: another client may open the instance first.
uint32_t PipeClient::TryOpen() {
  KivSdContext* ctx = ThisContext();
  const uint32_t waited = KivSdNamedPipeWait(ctx, KIV_PIPE_THIS_MACHINE, name_, kWaitOnceMs);
  if (waited != 0) return waited;
  // The server may identify the client but not impersonate it, because another program could own the
  // pipe's name.
  const uint32_t opened =
      KivSdNamedPipeOpen(ctx, KIV_PIPE_THIS_MACHINE, name_, &pipe_, kReadAndWrite, KIV_SHARE_NONE,
                         KIV_DISPOSITION_OPEN_EXISTING, KIV_OPEN_IDENTIFY_ONLY);
  if (opened != 0) pipe_ = nullptr;  // a failed opening does not leave null
  return opened;
}

bool PipeClient::Open(const char* name, uint32_t startWaitMs) {
  name_ = name;
  const TimeLimit start(startWaitMs);
  const TimeLimit busy(kBusyWaitMs);
  for (Pause pause;; pause.Take()) {
    const uint32_t status = TryOpen();
    if (status == 0) return true;
    const uint32_t osError = ThisContext()->osError;
    const bool missing = osError == kPipeErrors.missing;
    if (missing && start.passed()) {
      return Complain("no server on the pipe '%s'; start one with 'cellhost serve --pipe %s'", name,
                      name);
    }
    const bool busyNow = osError == kPipeErrors.timedOut || osError == kPipeErrors.busy;
    if (!missing && !busyNow) return Succeeded(ThisContext(), status, "open the server's pipe");
    if (busyNow && busy.passed()) {
      return Complain("the server on the pipe '%s' is busy with other clients; try again later",
                      name);
    }
  }
}

bool PipeClient::Ask(std::string_view request, Reply* reply) {
  if (request.size() > kRequestBytesMax) {
    return Complain("a request of %llu bytes is too long; the server takes %u",
                    static_cast<unsigned long long>(request.size()), kRequestBytesMax);
  }
  const TimeLimit limit(kReplyWaitMs);
  std::string_view text;
  const Received received =
      Send(request) ? Receive({.limit = &limit, .stop = nullptr}, &text) : Received::kGone;
  if (received == Received::kNoMemory) return false;
  if (received == Received::kTimedOut) {
    return Complain(
        "the server on the pipe '%s' has not answered for %u s; end it and start it again", name_,
        kReplyWaitMs / 1000);
  }
  if (received != Received::kMessage) {
    return Complain(
        "the server on the pipe '%s' has ended; look at its messages, and start it again", name_);
  }
  const std::string_view verb = TakeVerb(&text);
  if (verb != kOk && verb != kError) {
    return Complain("the server on the pipe '%s' is not cellhost; give another name with --pipe",
                    name_);
  }
  *reply = {.ok = verb == kOk, .text = text};
  return true;
}

void PipeClient::Leave() {
  Send(kBye);  // a failure does not matter: the server has gone
  Close();
}

bool ServerListens(const char* name, uint32_t limitMs) {
  return KivSdNamedPipeWait(ThisContext(), KIV_PIPE_THIS_MACHINE, name, limitMs) == 0;
}

RequestText::RequestText() : text_(kSourceRequest) {}

bool RequestText::Set(std::string_view verb, std::string_view rest) {
  if (!text_.Resize(static_cast<uint32_t>(verb.size() + 1 + rest.size()), ' ')) return false;
  char* end = std::copy(verb.begin(), verb.end(), text_.data());
  *end++ = ' ';
  std::copy(rest.begin(), rest.end(), end);
  return true;
}

}  // namespace cellhost
