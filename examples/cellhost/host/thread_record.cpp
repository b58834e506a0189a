// Records of the server's threads; see thread_record.h.
#include "host/thread_record.h"

#include "host/complain.h"
#include "kivsdu/manager.h"
#include "kivsdu/memory.h"
#include "kivsdu/settings.h"
#include "kivsdu/vorutil.h"

namespace cellhost {
namespace {

constexpr char kSource[] = "cellhost/thread_record";
constexpr uint32_t kLineRecordAlloc = 1;
constexpr uint32_t kLineRecordFree = 2;

void DeleteRecord(ThreadRecord* thread) {
  Succeeded(thread->ctx, KivRWLockFreeQNodes(&thread->locks), "free the thread's locks");
  thread->request.End();
  KivSdContext* ctx = thread->ctx;
  Succeeded(ctx, KivSdMemFree(ctx, thread, kSource, kLineRecordFree), "free the thread record");
  Succeeded(nullptr, KivSdTerm(ctx), "free the context");
}

ThreadRecord* MakeRecord(KivSdContext* ctx) {
  void* block = nullptr;
  const uint32_t status = KivSdMemAllocUsingPolicy(ctx, 0, sizeof(ThreadRecord), &block,
                                                   AD_POLICY_MANDATORY, kSource, kLineRecordAlloc);
  if (!Succeeded(ctx, status, "allocate the thread record")) {
    Succeeded(nullptr, KivSdTerm(ctx), "free the context");
    return nullptr;
  }
  ThreadRecord* thread = static_cast<ThreadRecord*>(block);
  *thread = {.ctx = ctx, .request = {}, .locks = {}};
  return thread;
}

}  // namespace

bool EnterThread() {
  KivSdContext* ctx = nullptr;
  if (!Succeeded(nullptr, KivSdInit(&ctx), "make a context")) return false;
  ThreadRecord* thread = MakeRecord(ctx);
  if (thread == nullptr) return false;
  if (!Succeeded(nullptr, KivSdVorUtilTlsSet(thread), "store the thread record")) {
    DeleteRecord(thread);
    return false;
  }
  KivSdUkrThreadAttach(0, 0, 0, 0);
  return true;
}

void LeaveThread() {
  ThreadRecord* thread = ThisThread();
  if (thread == nullptr) return;
  KivSdUkrThreadDetach(0, 0, 0, 0);
  Succeeded(nullptr, KivSdVorUtilTlsSet(nullptr), "clear the thread slot");
  DeleteRecord(thread);
}

ThreadRecord* ThisThread() { return static_cast<ThreadRecord*>(KivSdVorUtilTlsGet()); }

KivSdContext* ThisContext() {
  const ThreadRecord* thread = ThisThread();
  return thread != nullptr ? thread->ctx : nullptr;
}

}  // namespace cellhost
