// Threads with records; see host_thread.h.
//
// A join waits for ever, so the thread signals an event as the last thing it does, and only a
// thread that has signalled is joined. Beside each event there is a flag. The event only spares
// looking at the flag: where a wait fails, the flag is looked at until it is set, because a thread
// that still runs uses what its owner would free.
#include "host/host_thread.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "host/waiting.h"
#include "kivsdu/event.h"
#include "kivsdu/status.h"
#include "kivsdu/thread.h"

namespace cellhost {
namespace {

constexpr int32_t kLookMs = 1000;

void CloseEvent(KivHandle* event) {
  if (*event == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventClose(ctx, event), "close an event");
  *event = nullptr;
}

}  // namespace

HostThread::~HostThread() {
  if (thread_ != nullptr) Join();
  CloseEvents();
}

bool HostThread::MakeEvents() {
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdStdEventCreate(ctx, &begun_), "make an event") &&
         Succeeded(ctx, KivSdStdEventCreate(ctx, &ended_), "make an event");
}

void HostThread::CloseEvents() {
  CloseEvent(&begun_);
  CloseEvent(&ended_);
}

uint32_t HostThread::Run(void* thread) {
  HostThread* self = static_cast<HostThread*>(thread);
  const bool hasRecord = EnterThread();
  self->hasRecord_ = hasRecord;
  self->Signal(&self->begun_, &self->hasBegun_);
  if (hasRecord) {
    self->work_(self->argument_);
    LeaveThread();
  }
  self->Signal(&self->ended_, &self->hasEnded_);
  return 0;
}

// The flag last: once it is set, the event may be closed.
void HostThread::Signal(KivHandle* event, std::atomic<bool>* flag) {
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventSet(ctx, event), "signal what a thread has done");
  flag->store(true, std::memory_order_release);
}

// Whether it was signalled within the limit.
bool HostThread::Await(KivHandle* event, const std::atomic<bool>& flag, int32_t limitMs) {
  const TimeLimit limit(static_cast<uint32_t>(limitMs));
  KivSdContext* ctx = ThisContext();
  const uint32_t status = KivSdStdEventTimedWait(ctx, event, limitMs);
  if (status != KIV_ST_EVENT_TIMEOUT) Succeeded(ctx, status, "wait for a thread");
  for (Pause pause; !flag.load(std::memory_order_acquire); pause.Take()) {
    if (limit.passed()) return false;
  }
  return true;
}

bool HostThread::Start(Work work, void* argument) {
  if (!MakeEvents()) return false;
  work_ = work;
  argument_ = argument;
  KivSdContext* ctx = ThisContext();
  uint32_t id = 0;
  if (!Succeeded(ctx, KivSdThreadCreate(ctx, Run, 0, 0, this, &id, &thread_), "start a thread")) {
    return false;
  }
  while (!Await(&begun_, hasBegun_, kLookMs)) {
  }
  if (hasRecord_) return true;
  Join();
  return false;
}

bool HostThread::EndsWithin(int32_t limitMs) {
  if (thread_ == nullptr) return true;
  if (limitMs >= 0 && !Await(&ended_, hasEnded_, limitMs)) return false;
  Join();
  return true;
}

void HostThread::Join() {
  KivSdContext* ctx = ThisContext();
  KivSdThreadJoin(ctx, &thread_);  // which does not say whether its wait has failed
  for (Pause pause; !hasEnded_.load(std::memory_order_acquire); pause.Take()) {
  }
  Succeeded(ctx, KivSdThreadDelete(ctx, &thread_), "close a thread");
  thread_ = nullptr;
}

}  // namespace cellhost
