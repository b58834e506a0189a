#include "faults/fault_points.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <set>
#include <utility>

#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/lnx/answered_calls.h"
#include "support/lnx/seam_import.h"

namespace kiv::test {
namespace {

// How a stand-in reports a failure.
struct Failure {
  const char* call;
  intptr_t result;
  SeamFailure kind = SeamFailure::kWithoutEffect;
};

// A release takes effect in spite of its failure: whoever calls it cannot do more.
constexpr SeamFailure kReleases = SeamFailure::kWithEffect;

constexpr intptr_t kMinusOne = -1;
constexpr intptr_t kError = -2;  // the call returns its error
constexpr intptr_t kNever = -3;  // the call cannot fail
constexpr intptr_t kNoPriority = 0x7FFFFFFF;

// All stand-ins except the allocator's, which is patched.
const Failure kFailures[] = {
    {"CloseHandle", 0, kReleases},
    {"ConnectNamedPipe", 0},
    {"CreateEventA", 0},
    {"CreateFileA", kMinusOne},
    {"CreateFileMappingA", 0},
    {"CreateHardLinkA", 0},
    {"CreateMutexA", 0},
    {"CreateNamedPipeA", kMinusOne},
    {"CreatePipe", 0},
    {"CreateSemaphoreA", 0},
    {"CreateThread", 0},
    {"DeleteCriticalSection", kNever},
    {"DeleteFileA", 0},
    {"DisconnectNamedPipe", 0},
    {"DuplicateHandle", 0},
    {"EnterCriticalSection", kNever},
    {"FindClose", 0, kReleases},
    {"FindFirstFileA", kMinusOne},
    {"FindNextFileA", 0},
    {"FormatMessageA", 0},
    {"FreeLibrary", 0, kReleases},
    {"GetDiskFreeSpaceA", 0},
    {"GetDriveTypeA", kNever},
    {"GetFileSize", kMinusOne},
    {"GetFullPathNameA", 0},
    {"GetLogicalDrives", 0},
    {"GetModuleFileNameA", 0},
    {"GetModuleHandleA", kNever},
    {"GetOverlappedResult", 0},
    {"GetPriorityClass", 0},
    {"GetProcAddress", 0},
    {"GetProcessWorkingSetSize", 0},
    {"GetStdHandle", kMinusOne},
    {"GetSystemInfo", kNever},
    {"GetThreadPriority", kNoPriority},
    {"GetTickCount", kNever},
    {"GetUserNameA", 0},
    {"GetVersion", kNever},
    {"GetVolumeInformationA", 0},
    {"GetWindowsDirectoryA", 0},
    {"GlobalMemoryStatus", kNever},
    {"GlobalMemoryStatusEx", 0},
    {"InitializeCriticalSection", kNever},
    {"InitializeSecurityDescriptor", 0},
    {"LeaveCriticalSection", kNever},
    {"LoadLibraryExA", 0},
    {"MapViewOfFile", 0},
    {"OpenFileMappingA", 0},
    {"OpenMutexA", 0},
    {"OpenSemaphoreA", 0},
    {"PeekConsoleInputA", 0},
    {"PeekNamedPipe", 0},
    {"QueryPerformanceCounter", kNever},
    {"QueryPerformanceFrequency", kNever},
    {"ReadConsoleInputA", 0},
    {"ReadFile", 0},
    {"RegCloseKey", kError, kReleases},
    {"RegOpenKeyExA", kError},
    {"RegQueryInfoKeyA", kError},
    {"RegQueryValueExA", kError},
    {"ReleaseMutex", 0},
    {"ReleaseSemaphore", 0},
    {"ResetEvent", 0},
    {"ResumeThread", kMinusOne},
    {"SetEndOfFile", 0},
    {"SetErrorMode", kNever},
    {"SetEvent", 0},
    {"SetFilePointer", kMinusOne},
    {"SetPriorityClass", 0},
    {"SetProcessWorkingSetSize", 0},
    {"SetSecurityDescriptorDacl", 0},
    {"SetThreadPriority", 0},
    {"SignalObjectAndWait", kMinusOne},
    {"Sleep", kNever},
    {"SuspendThread", kMinusOne},
    {"TerminateProcess", 0},
    {"TlsAlloc", kMinusOne},
    {"TlsFree", 0, kReleases},
    {"TlsSetValue", 0},
    {"UnmapViewOfFile", 0, kReleases},
    {"VirtualAlloc", 0},
    {"VirtualFree", 0, kReleases},
    {"VirtualLock", 0},
    {"VirtualUnlock", 0, kReleases},
    {"WaitForSingleObject", kMinusOne},
    {"WaitNamedPipeA", 0},
    {"WriteFile", 0},
    {"_access", kMinusOne},
    {"_assert", kNever},
    {"_chdir", kMinusOne},
    {"_chmod", kMinusOne},
    {"_chsize", kMinusOne},
    {"_close", kMinusOne, kReleases},
    {"_commit", kMinusOne},
    {"_creat", kMinusOne},
    {"_ctime64", 0},
    {"_eof", kMinusOne},
    {"_filelength", kMinusOne},
    {"_ftime64", kNever},
    {"_get_osfhandle", kMinusOne},
    {"_getch", kNever},
    {"_getdrive", kNever},
    {"_getpid", kNever},
    {"_localtime64", 0},
    {"_lseek", kMinusOne},
    {"_lseeki64", kMinusOne},
    {"_mkdir", kMinusOne},
    {"_open", kMinusOne},
    {"_read", kMinusOne},
    {"_rmdir", kMinusOne},
    {"_sopen", kMinusOne},
    {"_tell", kMinusOne},
    {"_tempnam", 0},
    {"_time64", kNever},
    {"_unlink", kMinusOne},
    {"_wassert", kNever},
    {"_write", kMinusOne},
    {"asctime", 0},
    {"clock", kMinusOne},
    {"fopen", 0},
    {"free", kNever},
    {"getenv", kNever},
    {"malloc", kNever},
    {"printf", kMinusOne},
    {"realloc", kNever},
};

const Failure* FindFailure(const char* call) {
  for (const Failure& failure : kFailures) {
    if (std::strcmp(failure.call, call) == 0) return &failure;
  }
  return nullptr;
}

thread_local const FaultPlan* armed = nullptr;
uint32_t reached = 0;
std::vector<std::string> failed;
int64_t liveBlocks = 0;

// Whether this call fails; if so, its error is stored as errno and as the last error.
bool FailsAt(FaultLevel level, const char* call) {
  if (armed == nullptr || armed->level != level || armed->first == 0) return false;
  if (armed->spared != nullptr && std::strcmp(armed->spared, call) == 0) return false;
  ++reached;
  const bool fails = armed->lasting ? reached >= armed->first : reached == armed->first;
  if (!fails) return false;
  failed.emplace_back(call);
  SetErrors(static_cast<int>(armed->error), armed->error);
  return true;
}

// Decides about a call of a stand-in.
SeamFailure FailStandIn(const char* call, intptr_t* result) {
  if (armed == nullptr || armed->level != FaultLevel::kPrimitives) return SeamFailure::kNone;
  if (call == nullptr) {
    SetErrors(static_cast<int>(armed->error), armed->error);
    return SeamFailure::kNone;
  }
  const Failure* failure = FindFailure(call);
  if (failure == nullptr) {
    ADD_FAILURE() << "it is not known how " << call << " fails: add it to kFailures";
    return SeamFailure::kNone;
  }
  const bool fails = failure->result != kNever && FailsAt(FaultLevel::kPrimitives, call);
  if (!fails) return SeamFailure::kNone;
  *result = failure->result == kError ? static_cast<intptr_t>(armed->error) : failure->result;
  return failure->kind;
}

// Decides about a call of the C library.
bool FailCall(const char* call) { return FailsAt(FaultLevel::kSystemCalls, call); }

// ---- The allocator ----

void* (*realMalloc)(size_t);
void* (*realRealloc)(void*, size_t);
void (*realFree)(void*);

// Those of a TakenBlocks object; null without one.
std::set<void*>* taken = nullptr;

void CountBlock(int64_t change) { liveBlocks += change; }

void Note(void* block) {
  CountBlock(1);
  if (taken != nullptr) taken->insert(block);
}

void Forget(void* block) {
  CountBlock(-1);
  if (taken != nullptr) taken->erase(block);
}

bool AllocationFails(const char* call) {
  if (armed == nullptr || !FailsAt(armed->level, call)) return false;
  SetErrors(ENOMEM, ENOMEM);
  return true;
}

void* Malloc(size_t sizeBytes) {
  if (AllocationFails("malloc")) return nullptr;
  void* block = realMalloc(sizeBytes);
  if (block != nullptr) Note(block);
  return block;
}

void* Realloc(void* block, size_t sizeBytes) {
  if (AllocationFails("realloc")) return nullptr;
  void* moved = realRealloc(block, sizeBytes);
  if (moved == nullptr) return nullptr;
  if (block != nullptr) Forget(block);
  Note(moved);
  return moved;
}

void Free(void* block) {
  if (block != nullptr) Forget(block);
  realFree(block);
}

}  // namespace

ArmedFaults::ArmedFaults(const FaultPlan& plan) {
  reached = 0;
  failed.clear();
  failed.reserve(64);  // no allocation in a call
  armed = &plan;
  SetSeamFault(FailStandIn);
  SetCallFault(FailCall);
}

ArmedFaults::~ArmedFaults() {
  armed = nullptr;
  SetSeamFault(nullptr);
  SetCallFault(nullptr);
}

const std::vector<std::string>& FailedCalls() { return failed; }

int64_t LiveBlocks() { return liveBlocks + BlocksTaken(); }

struct BlockWatch::Patches {
  ImportPatch malloc{"malloc", reinterpret_cast<void*>(&Malloc)};
  ImportPatch realloc{"realloc", reinterpret_cast<void*>(&Realloc)};
  ImportPatch free{"free", reinterpret_cast<void*>(&Free)};
};

BlockWatch::BlockWatch() : patches_(new Patches) {
  realMalloc = reinterpret_cast<void* (*)(size_t)>(patches_->malloc.original());
  realRealloc = reinterpret_cast<void* (*)(void*, size_t)>(patches_->realloc.original());
  realFree = reinterpret_cast<void (*)(void*)>(patches_->free.original());
}

BlockWatch::~BlockWatch() { delete patches_; }

TakenBlocks::TakenBlocks() { taken = new std::set<void*>; }

TakenBlocks::~TakenBlocks() {
  const std::unique_ptr<std::set<void*>> left(std::exchange(taken, nullptr));
  for (void* block : *left) Free(block);
}

}  // namespace kiv::test
