// The ring between connections and workers; see request_ring.h.
#include "request_ring.h"

#include "complain.h"
#include "kivsdu/event.h"
#include "thread_record.h"

namespace cellhost {
namespace {

constexpr char kSourceReply[] = "cellhost/request_ring reply";
constexpr int32_t kNobodyWaits = 0;

class Guard {
 public:
  explicit Guard(KivSdCritSec* lock) : lock_(lock) { KivSdCritSecEnter(nullptr, lock_); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  ~Guard() { KivSdCritSecExit(nullptr, lock_); }

 private:
  KivSdCritSec* lock_;
};

}  // namespace

Request::Request() : reply(kSourceReply) {}

Request::~Request() {
  if (done_ == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventClose(ctx, &done_), "close a request's event");
}

bool Request::Create() {
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdStdEventCreate(ctx, &done_), "make a request's event");
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
  KivSdContext* ctx = ThisContext();
  if (waiting_ != nullptr) {
    Succeeded(ctx, KivSdCountingEventClose(ctx, &waiting_), "close the workers' event");
  }
  if (hasLock_) Succeeded(ctx, KivSdCritSecDelete(ctx, &lock_), "delete the ring's lock");
}

bool RequestRing::Create() {
  KivSdContext* ctx = ThisContext();
  hasLock_ = Succeeded(ctx, KivSdCritSecInit(ctx, &lock_), "make the ring's lock");
  return hasLock_ && Succeeded(ctx, KivSdCountingEventCreate(ctx, &waiting_, kNobodyWaits),
                               "make the workers' event");
}

bool RequestRing::Put(Request* request) {
  {
    const Guard guard(&lock_);
    ring_[(first_ + count_) % kConnections] = request;
    ++count_;
  }
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdCountingEventSet(ctx, &waiting_), "wake a worker");
}

Request* RequestRing::Take() {
  KivSdContext* ctx = ThisContext();
  if (!Succeeded(ctx, KivSdCountingEventWait(ctx, &waiting_), "wait for work")) return nullptr;
  const Guard guard(&lock_);
  if (count_ == 0) return nullptr;
  Request* request = ring_[first_];
  first_ = (first_ + 1) % kConnections;
  --count_;
  return request;
}

void RequestRing::EndOne() {
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdCountingEventSet(ctx, &waiting_), "wake a worker");
}

}  // namespace cellhost
