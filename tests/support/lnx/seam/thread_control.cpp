#include "os/thread_control.h"

#include "os/process.h"
#include "os/thread.h"
#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

constexpr uint32_t kFailedCount = 0xFFFFFFFF;
constexpr int32_t kNoPriority = 2147483647;
constexpr uint32_t kSameAccess = 2;

KIV_SEAM_PRIMITIVE(DuplicateCurrentThread, "_ZN3kiv2os22DuplicateCurrentThreadEv")
KIV_SEAM_PRIMITIVE(StopThread, "_ZN3kiv2os10StopThreadEPv")
KIV_SEAM_PRIMITIVE(ResumeStoppedThread, "_ZN3kiv2os19ResumeStoppedThreadEPv")
KIV_SEAM_PRIMITIVE(ReadThreadPriority, "_ZN3kiv2os18ReadThreadPriorityEPv")
KIV_SEAM_PRIMITIVE(WriteThreadPriority, "_ZN3kiv2os19WriteThreadPriorityEPvi")

namespace {

int32_t DuplicateHandle(void*, void*, void*, void** made, uint32_t, int32_t, uint32_t) {
  const ValueResult<void*> result = RealDuplicateCurrentThread();
  *made = result.value;
  return ToBool({result.ok, result.error});
}

uint32_t SuspendThread(void* thread) {
  return ToBool(RealStopThread(thread)) != 0 ? 0 : kFailedCount;
}

uint32_t ResumeThread(void* thread) {
  return ToBool(RealResumeStoppedThread(thread)) != 0 ? 0 : kFailedCount;
}

int32_t GetThreadPriority(void* thread) {
  const ValueResult<int32_t> read = RealReadThreadPriority(thread);
  StoreError({read.ok, read.error});
  return read.ok ? read.value : kNoPriority;
}

int32_t SetThreadPriority(void* thread, int32_t priority) {
  return ToBool(RealWriteThreadPriority(thread, priority));
}

SeamImport<decltype(DuplicateHandle)> duplicateHandle("DuplicateHandle", DuplicateHandle);
SeamImport<decltype(SuspendThread)> suspendThread("SuspendThread", SuspendThread);
SeamImport<decltype(ResumeThread)> resumeThread("ResumeThread", ResumeThread);
SeamImport<decltype(GetThreadPriority)> getThreadPriority("GetThreadPriority", GetThreadPriority);
SeamImport<decltype(SetThreadPriority)> setThreadPriority("SetThreadPriority", SetThreadPriority);

}  // namespace

ValueResult<void*> WrapDuplicateCurrentThread() {
  void* made = nullptr;
  void* process = os::CurrentProcessHandle();
  const Result result = FromBool(
      duplicateHandle.Call(process, os::CurrentThreadHandle(), process, &made, 0u, 0, kSameAccess));
  return {result.ok, result.error, made};
}

Result WrapStopThread(void* thread) { return FromBool(suspendThread.Call(thread) != kFailedCount); }

Result WrapResumeStoppedThread(void* thread) {
  return FromBool(resumeThread.Call(thread) != kFailedCount);
}

ValueResult<int32_t> WrapReadThreadPriority(void* thread) {
  const int32_t priority = getThreadPriority.Call(thread);
  const Result result = FromBool(priority != kNoPriority);
  return {result.ok, result.error, priority};
}

Result WrapWriteThreadPriority(void* thread, int32_t priority) {
  return FromBool(setThreadPriority.Call(thread, priority));
}

}  // namespace kiv::test
