// Threads with records; see host_thread.h.
//
// A join waits for ever, so the thread signals an event as the last thing it does, and only a
// thread that has signalled is joined.
#include "host/host_thread.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/event.h"
#include "kivsdu/thread.h"

namespace cellhost {
namespace {

constexpr int32_t kForEver = -1;

void CloseEvent(KivHandle* event) {
  if (*event == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdStdEventClose(ctx, event), "close an event");
  *event = nullptr;
}

}  // namespace

HostThread::~HostThread() {
  EndsWithin(kForEver);
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
  Succeeded(ThisContext(), KivSdStdEventSet(ThisContext(), &self->begun_), "signal a start");
  if (hasRecord) {
    self->work_(self->argument_);
    LeaveThread();
  }
  Succeeded(nullptr, KivSdStdEventSet(nullptr, &self->ended_), "signal an end");
  return 0;
}

bool HostThread::Start(Work work, void* argument) {
  if (!MakeEvents()) return false;
  work_ = work;
  argument_ = argument;
  KivSdContext* ctx = ThisContext();
  uint32_t id = 0;
  if (!Succeeded(ctx, KivSdThreadCreate(ctx, Run, 0, 0, this, &id, &thread_), "start a thread") ||
      !Succeeded(ctx, KivSdStdEventWait(ctx, &begun_), "wait for a thread's start")) {
    return false;
  }
  if (hasRecord_) return true;
  EndsWithin(kForEver);
  return false;
}

bool HostThread::EndsWithin(int32_t limitMs) {
  if (thread_ == nullptr) return true;
  if (KivSdStdEventTimedWait(ThisContext(), &ended_, limitMs) != 0) return false;
  Join();
  return true;
}

void HostThread::Join() {
  KivSdContext* ctx = ThisContext();
  KivSdThreadJoin(ctx, &thread_);
  Succeeded(ctx, KivSdThreadDelete(ctx, &thread_), "close a thread");
  thread_ = nullptr;
}

}  // namespace cellhost
