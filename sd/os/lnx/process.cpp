// Linux: processes. A host gets a process's handle, its identifier, from fork or posix_spawn.
//
// An identifier names a process only until its parent has waited for its end. A parent that keeps
// the handle must therefore not wait for the child before its last use.
#include "os/process.h"

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "os/lnx/descriptor_wait.h"
#include "os/lnx/nice.h"
#include "os/lnx/posix.h"
#include "os/lnx/process_handle.h"
#include "os/lnx/waits.h"

namespace kiv::os {

const uint32_t kErrorAccessDenied = EPERM;

namespace {

constexpr int kLowestNice = -20;
constexpr int kHighestNice = 19;

struct ClassRow {
  uint32_t priorityClass;
  int nice;
};

// From the lowest nice value to the highest.
constexpr ClassRow kClasses[] = {{0x100, kLowestNice}, {0x80, -10},         {0x8000, -5}, {0x20, 0},
                                 {0x4000, 5},          {0x40, kHighestNice}};

// The class that this process was last given, and the nice value that it had afterwards. While it
// still has that value, nobody else has changed it, and the class counts even if the process had no
// right to the class's own nice value.
std::atomic<uint32_t> keptClass{0};
std::atomic<int> keptNice{0};

// The nice value of a thread of priority 0 in this process.
constexpr int kUnknownNice = INT_MIN;
std::atomic<int> baseNice{kUnknownNice};

// How often the threads of a process are looked through for one that has started meanwhile.
constexpr int kNicePasses = 8;

bool IsOwn(pid_t process) { return process == getpid(); }

// A process that a host may end or rank: not the ancestor of all.
pid_t ProcessOf(const void* handle) {
  const pid_t process = IdentifierOf(handle);
  return process == 1 && !IsOwn(process) ? kNoProcess : process;
}

const ClassRow* FindClass(uint32_t priorityClass) {
  for (const ClassRow& row : kClasses) {
    if (row.priorityClass == priorityClass) return &row;
  }
  return nullptr;
}

// The class with the nearest nice value.
uint32_t ClassOfNice(int nice) {
  const ClassRow* nearest = kClasses;
  for (const ClassRow& row : kClasses) {
    if (std::abs(row.nice - nice) <= std::abs(nearest->nice - nice)) nearest = &row;
  }
  return nearest->priorityClass;
}

// getpriority may return -1 as a value.
ValueResult<int> NiceOf(id_t thread) {
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, thread);
  const auto error = static_cast<uint32_t>(errno);
  return {error == 0, error, nice};
}

Result SetNice(id_t thread, int nice) { return FromErrno(setpriority(PRIO_PROCESS, thread, nice)); }

// Gives every thread of a process the nice value. Returns whether one of them had another.
bool ChangeNiceOfThreads(pid_t process, int nice) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/task", process);
  DIR* threads = opendir(path);
  if (threads == nullptr) return false;
  bool changed = false;
  while (const dirent* entry = readdir(threads)) {
    const auto thread = static_cast<id_t>(std::atoi(entry->d_name));
    if (thread == 0) continue;  // the folder itself, or its parent
    const ValueResult<int> old = NiceOf(thread);
    if (old.ok && old.value != nice && SetNice(thread, nice).ok) changed = true;
  }
  closedir(threads);
  return changed;
}

// Sets the nice value of every thread of a process. The outcome is the first thread's, which has the
// process's identifier. A thread that starts meanwhile may have the old value of the thread that
// starts it, and appear in the list too late: the next pass finds it.
Result SetNiceOfAll(pid_t process, int nice) {
  const Result result = SetNice(static_cast<id_t>(process), nice);
  for (int pass = 0; pass < kNicePasses && ChangeNiceOfThreads(process, nice); ++pass) {
  }
  return result;
}

// At first the nice value that the process was started with.
int BaseNice() {
  int base = baseNice;
  if (base != kUnknownNice) return base;
  const ValueResult<int> started = NiceOf(static_cast<id_t>(getpid()));
  const int found = started.ok ? started.value : 0;
  return baseNice.compare_exchange_strong(base, found) ? found : base;
}

// ---- Waiting ----

// Without process descriptors (in a container that forbids the call), a process that has ended but
// whose parent has not yet waited for it seems to run.
Wait ProbeProcess(pid_t process) {
  if (kill(process, 0) == 0 || errno == EPERM) return kTimedOutWait;
  if (errno == ESRCH) return kSignalledWait;
  return FailedWait(errno);
}

Wait PollProcess(int descriptor, uint32_t timeoutMs) {
  const int count = PollUntil(descriptor, POLLIN, DeadlineAfter(timeoutMs));
  if (count > 0) return kSignalledWait;
  return count == 0 ? kTimedOutWait : FailedWait(errno);
}

}  // namespace

pid_t IdentifierOf(const void* handle) {
  if (handle == CurrentProcessHandle()) return getpid();
  const auto number = reinterpret_cast<intptr_t>(handle);
  return number > 0 && number <= INT_MAX ? static_cast<pid_t>(number) : kNoProcess;
}

void* CurrentProcessHandle() { return reinterpret_cast<void*>(intptr_t{-1}); }

uint32_t CurrentProcessId() { return static_cast<uint32_t>(getpid()); }

Wait WaitForProcess(void* handle, uint32_t timeoutMs) {
  const pid_t process = ProcessOf(handle);
  if (process == kNoProcess) return FailedWait(EBADF);
  const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  if (descriptor >= 0) {
    const Wait waited = PollProcess(descriptor, timeoutMs);
    close(descriptor);
    return waited;
  }
  if (errno == ESRCH) return kSignalledWait;
  if (errno == ENOSYS || errno == EPERM) return ProbeProcess(process);
  return FailedWait(errno);
}

// Another process ends as by SIGKILL: no process can choose the exit code of another one.
Result EndProcess(void* handle, uint32_t exitCode) {
  const pid_t process = ProcessOf(handle);
  if (process == kNoProcess) return {false, EBADF};
  if (IsOwn(process)) _exit(static_cast<int>(exitCode));
  return FromErrno(kill(process, SIGKILL));
}

ValueResult<uint32_t> ReadPriorityClass(void* handle) {
  const pid_t process = ProcessOf(handle);
  if (process == kNoProcess) return {false, EBADF, 0};
  const ValueResult<int> nice = NiceOf(static_cast<id_t>(process));
  if (!nice.ok) return {false, nice.error, 0};
  const bool isKept = IsOwn(process) && keptClass != 0 && keptNice == nice.value;
  return {true, 0, isKept ? keptClass.load() : ClassOfNice(nice.value)};
}

Result WritePriorityClass(void* handle, uint32_t priorityClass) {
  const pid_t process = ProcessOf(handle);
  if (process == kNoProcess) return {false, EBADF};
  const ClassRow* row = FindClass(priorityClass);
  if (row == nullptr) return {false, EINVAL};
  const Result result = SetNiceOfAll(process, row->nice);
  if (!IsOwn(process)) return result;
  const ValueResult<int> nice = NiceOf(static_cast<id_t>(process));
  if (nice.ok) {
    keptNice = nice.value;
    keptClass = priorityClass;
  }
  baseNice = row->nice;
  return {nice.ok, nice.error};
}

void ApplyThreadPriority(uint32_t threadId, int32_t priority) {
  constexpr int kStepsPerPriority = 5;
  const int nice = std::clamp(BaseNice() - kStepsPerPriority * priority, kLowestNice, kHighestNice);
  static_cast<void>(SetNice(threadId, nice));
}

}  // namespace kiv::os
