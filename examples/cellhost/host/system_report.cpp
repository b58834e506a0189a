// The system report; see system_report.h. A failure in one part does not stop the others.
#include "host/system_report.h"

#include <stdio.h>
#include <time.h>

#include "host/complain.h"
#include "host/console_report.h"
#include "host/exit_code.h"
#include "host/host.h"
#include "host/host_memory.h"
#include "host/platform.h"
#include "host/thread_record.h"
#include "kivsdu/kivsdu.h"
#include "kivutlu/kivutlu.h"

namespace cellhost {
namespace {

constexpr char kSource[] = "cellhost/system_report";

// Returns whether an operation succeeded. If not, prints the failure in place of its value.
bool Told(const char* label, uint32_t status) {
  if (status == 0) return true;
  Item(label, "not available: %s", ReasonOf(ThisContext(), status).text);
  return false;
}

ShortText SizeOfUnits(uint64_t pageUnits) { return SizeOfBytes(pageUnits * KIV_PAGE_UNIT); }

// ---- The machine: all of it from one record ----

void PrintMemory(const KivSdPhysMemInfo& memory) {
  Item("Memory", "%s, %s in use, %s available", SizeOfKiB(memory.totalKiB).text,
       SizeOfKiB(memory.usedKiB).text, SizeOfKiB(memory.availableKiB).text);
}

const char* PagingFilesOf(const KivSdSwapInfo& paging) {
  if ((paging.flags & KIV_SWAP_UNREADABLE) != 0) return "setting unreadable";
  if ((paging.flags & KIV_SWAP_FOUND) == 0) return "no paging file set";
  return paging.pagingFiles;
}

void PrintPaging(const KivSdSwapInfo& paging) {
  if ((paging.flags & KIV_SWAP_STATUS_FAILED) != 0) {
    Item("Paging", "sizes not available (%s)", PagingFilesOf(paging));
    return;
  }
  Item("Paging", "%s, %s in use, %s free (%s)", SizeOfKiB(paging.totalKiB).text,
       SizeOfKiB(paging.usedKiB).text, SizeOfKiB(paging.freeKiB).text, PagingFilesOf(paging));
}

void PrintDrive(const KivSdDriveInfo& drive, bool current) {
  printf("  %s:%c %-10s %-8s %12s %12s free  %s\n", drive.name, current ? '*' : ' ', drive.typeName,
         drive.fileSystem, SizeOfKiB(drive.totalKiB).text, SizeOfKiB(drive.freeKiB).text,
         drive.label);
}

void PrintDrives(const KivSdOSResources& machine) {
  Heading("Drives (* is the current one)");
  for (uint32_t at = 0; at < machine.drives.count; ++at) {
    const KivSdDriveInfo& drive = machine.drive[at];  // the others follow the first in memory
    PrintDrive(drive, drive.ordinal == machine.drives.current);
  }
}

bool PrintMachine(const KivSdOSResources** found, HostArray<uint64_t>* room) {
  KivSdContext* ctx = ThisContext();
  uint64_t sizeBytes = 0;
  if (!Told("Machine", KivSdOSResourcesSizeGet(ctx, &sizeBytes))) return false;
  const uint32_t words = static_cast<uint32_t>((sizeBytes + 7) / 8);
  if (!room->Resize(words, 0)) return false;
  KivSdOSResources* machine = reinterpret_cast<KivSdOSResources*>(room->data());
  if (!Told("Machine", KivSdOSResourcesGet(ctx, words * 8, machine))) return false;

  Item("Operating system", "%s %s", machine->os.name, machine->os.version);
  Item("Processor", "%u x %s (kind %u)", machine->processor.count, machine->processor.name,
       machine->processor.kind);
  PrintMemory(machine->memory);
  PrintPaging(machine->paging);
  *found = machine;
  return true;
}

bool PrintLimits() {
  KivSdContext* ctx = ThisContext();
  bool complete = true;
  uint64_t availableKiB = 0;
  if (Told("Memory available", KivSdAvailVirtMemGet(ctx, &availableKiB))) {
    Item("Memory available", "%s, paging included", SizeOfBytes(availableKiB * 1024).text);
  } else {
    complete = false;
  }
  uint32_t pageBytes = 0;
  uint64_t largestBytes = 0;
  uint32_t alignment = 0;
  if (!Told("Page", KivSdPageSizeGet(ctx, &pageBytes)) ||
      !Told("Largest request", KivSdMaxAllocGet(ctx, &largestBytes)) ||
      !Told("Alignment", KivSdMaxAlignGet(ctx, &alignment))) {
    return false;
  }
  Item("Page", "%s; the library counts in %s", SizeOfBytes(pageBytes).text, SizeOfUnits(1).text);
  Item("Largest request", "%s", SizeOfBytes(largestBytes).text);
  Item("Alignment", "%u bytes", alignment);
  return complete;
}

bool PrintSystemDirectory() {
  char path[KIV_SYSTEM_PATH_MAX];
  if (!Told("System directory", KivSdHomePathGet(ThisContext(), sizeof path, path))) return false;
  Item("System directory", "%s", path);
  return true;
}

bool PrintSystem() {
  Heading("System");
  HostArray<uint64_t> room(kSource);
  const KivSdOSResources* machine = nullptr;
  const bool machineTold = PrintMachine(&machine, &room);
  const bool limitsTold = PrintLimits();
  const bool directoryTold = PrintSystemDirectory();
  if (machine != nullptr) PrintDrives(*machine);
  return machineTold && limitsTold && directoryTold;
}

// ---- Clocks ----

bool PrintLocalTime() {
  constexpr uint32_t kTimeTextBytes = 25;
  KivSdContext* ctx = ThisContext();
  uint64_t seconds = 0;
  KivSdLocalTime local = {};
  char text[kTimeTextBytes];
  if (!Told("Local time", KivSdTime(ctx, &seconds)) ||
      !Told("Local time", KivSdLocalTimeGet(ctx, static_cast<int64_t>(seconds), &local)) ||
      !Told("Local time", KivSdTimeStrGet(ctx, &local, sizeof text, text))) {
    return false;
  }
  Item("Local time", "%s", text);
  return true;
}

bool PrintUtc() {
  KivSdUtcTimestamp stamp = {};
  if (!Told("UTC", KivSdGetUtcTimestamp(ThisContext(), 0, &stamp))) return false;
  Item("UTC", "%u.%06u seconds since 1970", stamp.seconds, stamp.microseconds);
  return true;
}

bool PrintUptime() {
  uint64_t seconds = 0;
  if (!Told("Uptime", KivSdTimeElapsedOS(ThisContext(), &seconds))) return false;
  Item("Uptime", "%s", Duration(seconds).text);
  return true;
}

bool PrintRunningTime() {
  uint32_t ticks = 0;
  if (!Told("Running for", KivSdClock(ThisContext(), &ticks))) return false;
  Item("Running for", "%.3f s", static_cast<double>(ticks) / CLOCKS_PER_SEC);
  return true;
}

bool PrintClocks() {
  Heading("Time");
  const bool localTold = PrintLocalTime();
  const bool utcTold = PrintUtc();
  const bool uptimeTold = PrintUptime();
  const bool runningTold = PrintRunningTime();
  return localTold && utcTold && uptimeTold && runningTold;
}

// ---- The process ----

bool PrintLogin() {
  char name[KIV_LOGIN_NAME_MAX] = "";
  uint32_t length = 0;
  if (!Told("Login user", KivSdGetSessionLoginUsername(ThisContext(), name, &length))) return false;
  Item("Login user", "%.*s", static_cast<int>(length), name);
  return true;
}

bool PrintWorkingSet() {
  uint64_t minimum = 0;
  uint64_t maximum = 0;
  const uint32_t status =
      KivSdProcessWorkingSetSizeGet(ThisContext(), OwnProcess(), &minimum, &maximum);
  if (!Told("Working set", status)) return false;
  Item("Working set", "%s to %s", SizeOfUnits(minimum).text, SizeOfUnits(maximum).text);
  return true;
}

void PrintHost() {
  const HostRecord& host = Host();
  Item("Application folder", "%s", KivSdAppFolderName());
  Item("Failover mode", "%s", KivSdIsFailoverMode() != 0 ? "on" : "off");
  // relaxed: only shown.
  Item("Lease guard", "asked %u times", host.leaseChecks.load(std::memory_order_relaxed));
  Item("Threads", "%u with a record", host.threads.load(std::memory_order_relaxed));
  Item("Memory nodes", "%u", KivSdGetNumNumaNodes());
}

bool PrintProcess() {
  Heading("Process");
  const bool loginTold = PrintLogin();
  const bool workingSetTold = PrintWorkingSet();
  PrintHost();
  return loginTold && workingSetTold;
}

// ---- Modules ----

void PrintModules() {
  Heading("Modules");
  for (const AdModule& module : adModules) {
    if (module.handle == nullptr) continue;
    const AdModuleDescriptor& descriptor = module.descriptor;
    printf("  %u.%u%s  %s\n", descriptor.version >> 8, descriptor.version & 0xFFu,
           descriptor.callback != nullptr ? " with callback" : "", descriptor.banner);
  }
}

}  // namespace

bool PrintSystemReport() {
  const bool systemTold = PrintSystem();
  const bool clocksTold = PrintClocks();
  const bool processTold = PrintProcess();
  PrintModules();
  return systemTold && clocksTold && processTold;
}

int ReportCommand() { return PrintSystemReport() ? kExitDone : kExitFailed; }

}  // namespace cellhost
