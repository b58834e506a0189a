// Fault loops of system information, time, console, modules and per-thread storage.
#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "faults/fault_loop.h"
#include "kivsdu/kivsdu.h"

namespace {

using kiv::test::FaultLoop;
using kiv::test::FaultOutcome;
using kiv::test::FaultRun;
using kiv::test::FaultScenario;
using kiv::test::NameOfScenario;
using kiv::test::Recording;

// The library of another program's mathematics, which this program does not use.
constexpr char kModule[] = "libm.so.6";

// ---- Modules ----

// The library keeps the text of the last failure: each run ends with one.
void LoadModule(FaultRun& run) {
  KivHandle module = nullptr;
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivSdModuleLoad(ctx, kModule, &module, 0); });
  if (status == KIV_ST_OK) KivSdModuleUnload(nullptr, module);
  EXPECT_EQ(KivSdModuleLoad(nullptr, "no_such_module.so", &module, 0), KIV_ST_MODULE_LOAD);
}

struct Module {
  Module() { EXPECT_EQ(KivSdModuleLoad(nullptr, kModule, &handle, 0), KIV_ST_OK); }
  ~Module() {
    if (handle != nullptr) KivSdModuleUnload(nullptr, handle);
  }

  KivHandle handle = nullptr;
};

void UnloadModule(FaultRun& run) {
  Module module;
  run.Call([&](KivSdContext* ctx) { return KivSdModuleUnload(ctx, module.handle); });
  module.handle = nullptr;
}
void FindEntry(FaultRun& run) {
  const Module module;
  void* entry = nullptr;
  run.Call(
      [&](KivSdContext* ctx) { return KivSdModuleProcAddrGet(ctx, module.handle, "cos", &entry); });
}
void NameModule(FaultRun& run) {
  const Module module;
  char name[KIV_SYSTEM_PATH_MAX];
  run.Call([&](KivSdContext* ctx) {
    return KivSdModuleNameGet(ctx, module.handle, sizeof(name), name);
  });
}

void FindMainModule(FaultRun& run) {
  KivHandle module = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdModuleHandleGet(ctx, &module); });
}
void ExplainError(FaultRun& run) {
  KivSdContext failed = {};
  failed.osError = ENOENT;
  run.Call([&](KivSdContext*) {
    return KivSdModuleGetErrorMessage(&failed)[0] != '\0' ? KIV_ST_OK : KIV_ST_ARGUMENT;
  });
}

// ---- Information ----

void GetMemory(FaultRun& run) {
  KivSdPhysMemInfo info = {};
  run.Call([&](KivSdContext* ctx) { return KivSdPhysMemInfoGet(ctx, &info); });
}
void GetVirtualMemory(FaultRun& run) {
  uint64_t size = 0;
  run.Call([&](KivSdContext* ctx) { return KivSdAvailVirtMemGet(ctx, &size); });
}
void GetSwap(FaultRun& run) {
  KivSdSwapInfo info = {};
  run.Call([&](KivSdContext* ctx) { return KivSdSwapInfoGet(ctx, &info); });
}
void GetDrives(FaultRun& run) {
  KivSdDrives drives = {};
  run.Call([&](KivSdContext* ctx) { return KivSdDrivesGet(ctx, &drives); });
}
void GetHome(FaultRun& run) {
  char path[KIV_SYSTEM_PATH_MAX];
  run.Call([&](KivSdContext* ctx) { return KivSdHomePathGet(ctx, sizeof(path), path); });
}
void GetUser(FaultRun& run) {
  char name[256];
  uint32_t length = sizeof(name);
  run.Call([&](KivSdContext* ctx) { return KivSdGetSessionLoginUsername(ctx, name, &length); });
}

void GetResourcesSize(FaultRun& run) {
  uint64_t size = 0;
  run.Call([&](KivSdContext* ctx) { return KivSdOSResourcesSizeGet(ctx, &size); });
}
void GetResources(FaultRun& run) {
  uint64_t size = 0;
  EXPECT_EQ(KivSdOSResourcesSizeGet(nullptr, &size), KIV_ST_OK);
  void* resources = std::malloc(size);
  run.Call([&](KivSdContext* ctx) {
    return KivSdOSResourcesGet(ctx, static_cast<uint32_t>(size),
                               static_cast<KivSdOSResources*>(resources));
  });
  std::free(resources);
}
void GetProcessor(FaultRun& run) {
  KivSdProcessorInfo info = {};
  run.Call([&](KivSdContext* ctx) { return KivSdCPUInfoGet(ctx, &info); });
  EXPECT_GE(info.count, 1u);
}
void CountProcessors(FaultRun& run) {
  run.Call([](KivSdContext*) { return KivSdCPUCountGet() >= 1 ? KIV_ST_OK : KIV_ST_ARGUMENT; });
}
void GetSystem(FaultRun& run) {
  KivSdOSInfo info = {};
  run.Call([&](KivSdContext* ctx) { return KivSdOSInfoGet(ctx, &info); });
}
void GetDrive(FaultRun& run) {
  KivSdDrives drives = {};
  EXPECT_EQ(KivSdDrivesGet(nullptr, &drives), KIV_ST_OK);
  const auto ordinal = static_cast<uint32_t>(std::countr_zero(drives.mask)) + 1;
  KivSdDriveInfo info = {};
  run.Call([&](KivSdContext* ctx) { return KivSdDriveInfoGet(ctx, ordinal, &info); });
}

KivHandle OwnProcess() {
  uint64_t self = 0;
  EXPECT_EQ(KivSdProcessSessionIdGet(nullptr, &self), KIV_ST_OK);
  return reinterpret_cast<KivHandle>(self);  // NOLINT(performance-no-int-to-ptr)
}
void GetWorkingSet(FaultRun& run) {
  uint64_t minimum = 0;
  uint64_t maximum = 0;
  run.Call([&](KivSdContext* ctx) {
    return KivSdProcessWorkingSetSizeGet(ctx, OwnProcess(), &minimum, &maximum);
  });
}
void SetWorkingSet(FaultRun& run) {
  uint64_t minimum = 0;
  uint64_t maximum = 0;
  EXPECT_EQ(KivSdProcessWorkingSetSizeGet(nullptr, OwnProcess(), &minimum, &maximum), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) {
    return KivSdProcessWorkingSetSizeSet(ctx, OwnProcess(), 1, maximum);
  });
}

// ---- The console ----

// A terminal as the standard input, with keys that were typed.
class Typed {
 public:
  explicit Typed(const char* keys) : saved_(dup(STDIN_FILENO)) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(master_), 0);
    EXPECT_EQ(unlockpt(master_), 0);
    const int terminal = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(dup2(terminal, STDIN_FILENO), STDIN_FILENO);
    close(terminal);
    EXPECT_GT(write(master_, keys, std::strlen(keys)), 0);
  }
  // Takes the keys that a failed call left.
  ~Typed() {
    KivSdConsole console = {};
    EXPECT_EQ(KivSdConsoleInit(nullptr, &console), KIV_ST_OK);
    uint8_t hit = 1;
    while (hit != 0) EXPECT_EQ(KivSdConsoleKeyHit(nullptr, &console, &hit, nullptr), KIV_ST_OK);
    dup2(saved_, STDIN_FILENO);
    close(saved_);
    close(master_);
  }
  Typed(const Typed&) = delete;
  Typed& operator=(const Typed&) = delete;

 private:
  int saved_;
  int master_ = -1;
};

void MakeConsole(FaultRun& run) {
  KivSdConsole console = {};
  run.Call([&](KivSdContext* ctx) { return KivSdConsoleInit(ctx, &console); });
}
void WriteText(FaultRun& run) {
  run.Call([&](KivSdContext* ctx) { return KivSdConsoleWrite(ctx, nullptr, 1, ""); });
}
void HitKey(FaultRun& run) {
  const Typed typed("k\n");
  KivSdConsole console = {};
  EXPECT_EQ(KivSdConsoleInit(nullptr, &console), KIV_ST_OK);
  uint8_t hit = 0;
  KivSdConsoleKey key = {};
  run.Call([&](KivSdContext* ctx) { return KivSdConsoleKeyHit(ctx, &console, &hit, &key); });
}
void GetKey(FaultRun& run) {
  const Typed typed("k\n");
  KivSdConsoleKey key = {};
  run.Call([&](KivSdContext* ctx) { return KivSdConsoleKeyGet(ctx, 0, nullptr, &key); });
}
void TestKey(FaultRun& run) {
  const Typed typed("k\n");
  KivSdConsoleKey key = {};
  KivSdLWSpinlock lock;
  KivSdLWSpinlockInit(&lock);
  run.Call([&](KivSdContext*) {
    static_cast<void>(KivSdConsoleIsKeyDown(&key, &lock));
    return KIV_ST_OK;
  });
  EXPECT_EQ(KivSdLWSpinlockOwner(&lock), 0) << "the lock stays taken";
}

// ---- Time ----

void GetClock(FaultRun& run) {
  uint32_t ticks = 0;
  run.Call([&](KivSdContext* ctx) { return KivSdClock(ctx, &ticks); });
}
void GetLocalTime(FaultRun& run) {
  KivSdLocalTime local = {};
  run.Call([&](KivSdContext* ctx) { return KivSdLocalTimeGet(ctx, 86400, &local); });
}
void WriteTime(FaultRun& run) {
  KivSdLocalTime local = {};
  char text[64];
  KivSdLocalTimeGet(nullptr, 86400, &local);
  run.Call([&](KivSdContext* ctx) { return KivSdTimeStrGet(ctx, &local, sizeof(text), text); });
}
void WriteTimeOfSeconds(FaultRun& run) {
  char text[64];
  run.Call([&](KivSdContext* ctx) { return KivSdCTime(ctx, 86400, sizeof(text), text); });
}

// ---- Per-thread storage ----

void MakeSlot(FaultRun& run) {
  KivSdVorUtilTlsTerm();
  run.Call([&](KivSdContext*) { return KivSdVorUtilTlsInit(); });
  KivSdVorUtilTlsTerm();
}

void StoreValue(FaultRun& run) {
  EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  int value = 0;
  const uint32_t status = run.Call([&](KivSdContext*) { return KivSdVorUtilTlsSet(&value); });
  EXPECT_EQ(KivSdVorUtilTlsGet(), status == KIV_ST_OK ? &value : nullptr);
  KivSdVorUtilTlsTerm();
}
void ReleaseSlot(FaultRun& run) {
  EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  run.Call([](KivSdContext*) {
    KivSdVorUtilTlsTerm();
    return KIV_ST_OK;
  });
  EXPECT_EQ(KivSdVorUtilTlsGet(), nullptr);
}

// Without the paging files the size of the page file is that of the memory status, or 0.
const std::vector<FaultOutcome> kPagingOutcomes = {
    {"GlobalMemoryStatusEx", KIV_ST_OK}, {"RegOpenKeyExA", KIV_ST_OK},
    {"RegQueryInfoKeyA", KIV_ST_OK},     {"RegQueryValueExA", KIV_ST_OK},
    {"RegCloseKey", KIV_ST_OK},          {"malloc", KIV_ST_OK},
};

// What cannot be found out about memory and drives is left out.
const std::vector<FaultOutcome> kResourcesOutcomes = {
    {"GetLogicalDrives", KIV_ST_DRIVES},  {"_localtime64", KIV_ST_LOCAL_TIME},
    {"GlobalMemoryStatusEx", KIV_ST_OK},  {"RegOpenKeyExA", KIV_ST_OK},
    {"RegQueryInfoKeyA", KIV_ST_OK},      {"RegQueryValueExA", KIV_ST_OK},
    {"RegCloseKey", KIV_ST_OK},           {"malloc", KIV_ST_OK},
    {"GetVolumeInformationA", KIV_ST_OK}, {"GetDiskFreeSpaceA", KIV_ST_OK},
};

const FaultScenario kScenarios[] = {
    {"KivSdModuleLoad",
     LoadModule,
     {{"LoadLibraryExA", KIV_ST_MODULE_LOAD}, {"malloc", KIV_ST_MODULE_LOAD}}},
    {"KivSdModuleUnload", UnloadModule, {{"FreeLibrary", KIV_ST_MODULE_UNLOAD}}},
    {"KivSdModuleProcAddrGet", FindEntry, {{"GetProcAddress", KIV_ST_MODULE_PROCEDURE}}},
    {"KivSdModuleHandleGet", FindMainModule, {}},
    {"KivSdModuleGetErrorMessage",
     ExplainError,
     {{"FormatMessageA", KIV_ST_OK}},
     {},
     Recording::kNothing},
    {"KivSdModuleNameGet", NameModule, {{"GetModuleFileNameA", KIV_ST_OK}}},
    {"KivSdPhysMemInfoGet", GetMemory, {{"GlobalMemoryStatusEx", KIV_ST_OK}}},
    {"KivSdAvailVirtMemGet",
     GetVirtualMemory,
     {{"GlobalMemoryStatusEx", KIV_ST_AVAIL_VIRT_MEM, FaultOutcome::kAny, Recording::kNoError},
      {"RegOpenKeyExA", KIV_ST_OK},
      {"RegQueryInfoKeyA", KIV_ST_OK},
      {"RegQueryValueExA", KIV_ST_OK},
      {"RegCloseKey", KIV_ST_OK},
      {"malloc", KIV_ST_OK}}},
    {"KivSdSwapInfoGet", GetSwap, kPagingOutcomes},
    {"KivSdDrivesGet", GetDrives, {{"GetLogicalDrives", KIV_ST_DRIVES}}},
    {"KivSdOSResourcesSizeGet", GetResourcesSize, {{"GetLogicalDrives", KIV_ST_DRIVES}}},
    {"KivSdOSResourcesGet", GetResources, kResourcesOutcomes},
    {"KivSdCPUInfoGet", GetProcessor, {}},
    {"KivSdCPUCountGet", CountProcessors, {}, {}, Recording::kNothing},
    {"KivSdOSInfoGet", GetSystem, {}},
    {"KivSdDriveInfoGet",
     GetDrive,
     {{"GetVolumeInformationA", KIV_ST_OK}, {"GetDiskFreeSpaceA", KIV_ST_OK}},
     {KIV_ST_DRIVE_INFO}},
    {"KivSdProcessWorkingSetSizeGet",
     GetWorkingSet,
     {{"GetProcessWorkingSetSize", KIV_ST_WORKING_SET_GET}}},
    {"KivSdProcessWorkingSetSizeSet",
     SetWorkingSet,
     {{"SetProcessWorkingSetSize", KIV_ST_WORKING_SET_SET},
      {"SetProcessWorkingSetSize", KIV_ST_WORKING_SET_PRIVILEGE, EPERM}}},
    {"KivSdConsoleInit", MakeConsole, {{"GetStdHandle", KIV_ST_CONSOLE_INIT}}},
    {"KivSdConsoleWrite", WriteText, {{"printf", KIV_ST_CONSOLE_WRITE}}},
    {"KivSdConsoleKeyHit",
     HitKey,
     {{"PeekConsoleInputA", KIV_ST_CONSOLE_KEY}, {"ReadConsoleInputA", KIV_ST_CONSOLE_KEY}}},
    {"KivSdConsoleKeyGet", GetKey, {}},
    {"KivSdConsoleIsKeyDown",
     TestKey,
     {{"GetStdHandle", KIV_ST_OK},
      {"PeekConsoleInputA", KIV_ST_OK},
      {"ReadConsoleInputA", KIV_ST_OK}},
     {},
     Recording::kNothing},
    {"KivSdHomePathGet", GetHome, {{"GetWindowsDirectoryA", KIV_ST_HOME_PATH}}},
    {"KivSdGetSessionLoginUsername",
     GetUser,
     {{"GetUserNameA", KIV_ST_LOGIN_USER}, {"malloc", KIV_ST_LOGIN_USER}},
     {},
     Recording::kNoError},
    {"KivSdClock", GetClock, {{"clock", KIV_ST_CLOCK}}},
    {"KivSdLocalTimeGet", GetLocalTime, {{"_localtime64", KIV_ST_LOCAL_TIME}}},
    {"KivSdTimeStrGet", WriteTime, {{"asctime", KIV_ST_TIME_STRING}}},
    {"KivSdCTime", WriteTimeOfSeconds, {{"_ctime64", KIV_ST_TIME_FORMAT}}},
    {"KivSdVorUtilTlsInit",
     MakeSlot,
     {{"TlsAlloc", KIV_ST_THREAD_SLOT}, {"malloc", KIV_ST_OUT_OF_MEMORY}},
     {},
     Recording::kNothing},
    {"KivSdVorUtilTlsSet",
     StoreValue,
     {{"TlsSetValue", KIV_ST_THREAD_SLOT}},
     {},
     Recording::kNothing},
    {"KivSdVorUtilTlsTerm", ReleaseSlot, {{"TlsFree", KIV_ST_OK}}, {}, Recording::kNothing},
};

INSTANTIATE_TEST_SUITE_P(System, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
