// The ring between connections and workers; see request_ring.h.
#include "server/request_ring.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/event.h"

namespace cellhost {
namespace {

constexpr char kSourceReply[] = "cellhost/request_ring reply";
constexpr int32_t kNobodyWaits = 0;

}  // namespace

Request::Request() : reply(kSourceReply) {}

Request::~Request() {
  if (done_ == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventClose(ctx, &done_), "close a request's event");
}

bool Request::Create() {
  KivSdContext* ctx = ThisContext();
  return reply.Reserve(kShortReplyBytes) &&
         Succeeded(ctx, KivSdStdEventCreate(ctx, &done_), "make a request's event");
}

void Request::SignalDone() {
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventSet(ctx, &done_), "signal an answer");
}

bool Request::AwaitDone() {
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdStdEventWait(ctx, &done_), "wait for an answer");
}

RequestRing::~RequestRing() {
  if (waiting_ == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdCountingEventClose(ctx, &waiting_), "close the workers' event");
}

bool RequestRing::Create() {
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdCountingEventCreate(ctx, &waiting_, kNobodyWaits),
                   "make the workers' event");
}

bool RequestRing::Put(Request* request) {
  places_.Add(request);
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdCountingEventSet(ctx, &waiting_), "wake a worker");
}

Request* RequestRing::Take() {
  KivSdContext* ctx = ThisContext();
  if (!Succeeded(ctx, KivSdCountingEventWait(ctx, &waiting_), "wait for work")) return nullptr;
  return places_.TakeOldest();
}

void RequestRing::EndOne() {
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdCountingEventSet(ctx, &waiting_), "wake a worker");
}

}  // namespace cellhost
