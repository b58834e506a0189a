// Fault loops of system information, time, console, modules and per-thread storage.
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

void LoadModule(FaultRun& run) {
  KivHandle module = nullptr;
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivSdModuleLoad(ctx, kModule, &module, 0); });
  if (status == KIV_ST_OK) KivSdModuleUnload(nullptr, module);
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

// Without the paging files the size of the page file is that of the memory status, or 0.
const std::vector<FaultOutcome> kPagingOutcomes = {
    {"GlobalMemoryStatusEx", KIV_ST_OK}, {"RegOpenKeyExA", KIV_ST_OK},
    {"RegQueryInfoKeyA", KIV_ST_OK},     {"RegQueryValueExA", KIV_ST_OK},
    {"RegCloseKey", KIV_ST_OK},          {"malloc", KIV_ST_OK},
};

const FaultScenario kScenarios[] = {
    {"KivSdModuleLoad",
     LoadModule,
     {{"LoadLibraryExA", KIV_ST_MODULE_LOAD}, {"malloc", KIV_ST_MODULE_LOAD}}},
    {"KivSdModuleUnload", UnloadModule, {{"FreeLibrary", KIV_ST_MODULE_UNLOAD}}},
    {"KivSdModuleProcAddrGet", FindEntry, {{"GetProcAddress", KIV_ST_MODULE_PROCEDURE}}},
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
};

INSTANTIATE_TEST_SUITE_P(System, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
