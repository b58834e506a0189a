#include "os/thread_control.h"

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

constexpr DWORD kFailedCount = static_cast<DWORD>(-1);

}  // namespace

static_assert(kHighestThreadPriority == THREAD_PRIORITY_HIGHEST);

ValueResult<void*> DuplicateCurrentThread() {
  HANDLE made = nullptr;
  const HANDLE process = GetCurrentProcess();
  const Result result = FromBool(DuplicateHandle(process, GetCurrentThread(), process, &made, 0,
                                                 FALSE, DUPLICATE_SAME_ACCESS));
  return {result.ok, result.error, made};
}

Result StopThread(void* handle) { return FromBool(SuspendThread(handle) != kFailedCount); }

Result ResumeStoppedThread(void* handle) { return FromBool(ResumeThread(handle) != kFailedCount); }

void EndCurrentThread(uint32_t exitCode) { ExitThread(exitCode); }

ValueResult<void*> MakeClaim() { return FromPointer(CreateMutexA(nullptr, FALSE, nullptr)); }

Result CloseClaim(void* claim) { return FromBool(CloseHandle(claim)); }

Claim TakeClaim(void* claim) {
  const DWORD waited = WaitForSingleObject(claim, INFINITE);
  if (waited == WAIT_ABANDONED) return Claim::kTakenFromEnded;
  return waited == WAIT_OBJECT_0 ? Claim::kTaken : Claim::kFailed;
}

ValueResult<int32_t> ReadThreadPriority(void* handle) {
  const int priority = GetThreadPriority(handle);
  const Result result = FromBool(priority != THREAD_PRIORITY_ERROR_RETURN);
  return {result.ok, result.error, priority};
}

Result WriteThreadPriority(void* handle, int32_t priority) {
  return FromBool(SetThreadPriority(handle, priority));
}

}  // namespace kiv::os
