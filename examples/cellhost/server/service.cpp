// What connections and workers share; see service.h.
#include "server/service.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/event.h"
#include "kivsdu/time.h"

namespace cellhost {
namespace {

uint64_t WallSeconds() {
  KivSdContext* ctx = ThisContext();
  uint64_t seconds = 0;
  Succeeded(ctx, KivSdTime(ctx, &seconds), "read the clock");
  return seconds;
}

}  // namespace

Service::~Service() {
  if (stopped_ == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventClose(ctx, &stopped_), "close the stop event");
}

bool Service::Create() {
  KivSdContext* ctx = ThisContext();
  startSeconds_ = WallSeconds();
  return Succeeded(ctx, KivSdStdEventCreate(ctx, &stopped_), "make the stop event") &&
         ring.Create() && segment.Create();
}

void Service::Stop() {
  stop.store(true, std::memory_order_relaxed);
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventSet(ctx, &stopped_), "signal the stop");
}

void Service::Fail() {
  failed.store(true, std::memory_order_relaxed);
  Stop();
}

bool Service::AwaitStop() {
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdStdEventWait(ctx, &stopped_), "wait for the stop");
}

bool Service::Put(const PutOrder& order, Fault* fault) {
  return files != nullptr ? files->Put(&cells, order, fault) : cells.Put(order, fault);
}

uint64_t Service::uptimeSeconds() const {
  const uint64_t now = WallSeconds();
  return now > startSeconds_ ? now - startSeconds_ : 0;  // the clock may be set back
}

}  // namespace cellhost
