#include "info/info_command.h"

#include <cstdio>

#include "exit_code.h"
#include "info/library_info.h"
#include "info/machine_info.h"
#include "json.h"
#include "kivsdu/sync.h"

namespace kivsd {
namespace {

constexpr size_t kIndent = 20;
constexpr uint64_t kKiB = 1024;

std::string SizeOfKiB(uint64_t kib) { return SizeText(kib * kKiB); }

void Heading(const char* text) { std::printf("%s\n", text); }

void Item(const std::string& label, const std::string& text) {
  std::printf("%s", Wrapped("  " + label, kIndent, text).c_str());
}

struct Report {
  LibraryInfo library = DescribeLibrary();
  ConfigurationInfo configuration;
  MachineInfo machine;
  uint32_t pageBytes = 0;
  uint64_t availableKiB = 0;
};

Report Collect(const InfoOptions& options) {
  Report report;
  report.configuration = DescribeConfiguration(options.suffix);
  KivSdPageSizeGet(nullptr, &report.pageBytes);
  KivSdAvailVirtMemGet(nullptr, &report.availableKiB);
  KivSyncEnvInit();
  return report;
}

bool IsComplete(const Report& report) {
  return report.machine.IsAvailable() && !report.library.banner.empty();
}

// ---- Text ----

void PrintLibrary(const LibraryInfo& library) {
  Heading("Library");
  if (library.banner.empty()) {
    Item("version", "not known: the kivutlu that is loaded has no list of modules");
    return;
  }
  Item("build", library.banner);
  Item("version", library.version);
  Item("file", library.path);
}

void PrintLocks() {
  Heading("Locks");
  Item("design", "test-and-set, unless the host asks for tickets (KivSdSetHardwareAcceleration)");
  Item("spin budget", std::to_string(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT) + " rounds on this machine");
}

void PrintConfiguration(const ConfigurationInfo& configuration) {
  Heading("Memory configuration");
  Item("MOLTAPATH", configuration.moltaPath.empty() ? "not set" : configuration.moltaPath);
  Item("file", configuration.path);
  Item("", configuration.exists
               ? "exists; a host reads it. 'kivsd memconf check FILE' checks it."
               : "does not exist. A host stays in plain mode, unless it forces thread heaps.");
}

void PrintVariables() {
  Heading("Environment");
  const auto variables = SetVariables();
  if (variables.empty()) Item("variables", "none that the library reads is set");
  for (const auto& [name, value] : variables) Item(name, value);
}

std::string PagingText(const KivSdSwapInfo& paging) {
  if ((paging.flags & KIV_SWAP_STATUS_FAILED) != 0) return "not available";
  if (paging.totalKiB == 0) return "none";
  const std::string files = (paging.flags & KIV_SWAP_FOUND) != 0 ? paging.pagingFiles : "";
  return SizeOfKiB(paging.totalKiB) + ", " + SizeOfKiB(paging.usedKiB) + " in use" +
         (files.empty() ? "" : " (" + files + ")");
}

void PrintMachine(const Report& report) {
  Heading("Machine");
  if (!report.machine.IsAvailable()) {
    Item("machine", "not available: " + report.machine.Reason());
    return;
  }
  const KivSdOSResources& record = report.machine.Record();
  Item("system", std::string(record.os.name) + " " + record.os.version + ", up " +
                     DurationText(record.elapsedSeconds));
  Item("processors", std::to_string(record.processor.count) + " x " + record.processor.name);
  Item("memory", SizeOfKiB(record.memory.totalKiB) + ", " + SizeOfKiB(record.memory.availableKiB) +
                     " available");
  Item("paging", PagingText(record.paging));
  Item("both available", SizeOfKiB(report.availableKiB));
  Item("page", SizeText(report.pageBytes));
}

void PrintDrives(const MachineInfo& machine) {
  if (!machine.IsAvailable()) return;
  Heading("Drives (* is the current one)");
  for (const KivSdDriveInfo& drive : machine.Drives()) {
    const char mark = drive.ordinal == machine.Record().drives.current ? '*' : ' ';
    std::printf("  %s:%c %-9s %-8.8s %10s %10s free  %.26s\n", drive.name, mark, drive.typeName,
                drive.fileSystem, SizeOfKiB(drive.totalKiB).c_str(),
                SizeOfKiB(drive.freeKiB).c_str(), drive.label);
  }
}

void PrintText(const Report& report) {
  PrintLibrary(report.library);
  PrintLocks();
  PrintConfiguration(report.configuration);
  PrintVariables();
  PrintMachine(report);
  PrintDrives(report.machine);
}

// ---- JSON ----

Json JsonOfDrives(const MachineInfo& machine) {
  Json drives = Json::array();
  for (const KivSdDriveInfo& drive : machine.Drives()) {
    drives.push_back({{"name", drive.name},
                      {"current", drive.ordinal == machine.Record().drives.current},
                      {"type", drive.typeName},
                      {"file_system", drive.fileSystem},
                      {"label", drive.label},
                      {"total_bytes", drive.totalKiB * kKiB},
                      {"free_bytes", drive.freeKiB * kKiB}});
  }
  return drives;
}

Json JsonOfMachine(const Report& report) {
  if (!report.machine.IsAvailable()) return {{"error", report.machine.Reason()}};
  const KivSdOSResources& record = report.machine.Record();
  return {{"system", record.os.name},
          {"version", record.os.version},
          {"up_seconds", record.elapsedSeconds},
          {"processors", record.processor.count},
          {"processor", record.processor.name},
          {"memory_bytes", record.memory.totalKiB * kKiB},
          {"memory_available_bytes", record.memory.availableKiB * kKiB},
          {"paging_bytes", record.paging.totalKiB * kKiB},
          {"paging_used_bytes", record.paging.usedKiB * kKiB},
          {"page_bytes", report.pageBytes},
          {"drives", JsonOfDrives(report.machine)}};
}

Json JsonOf(const Report& report) {
  Json variables = Json::object();
  for (const auto& [name, value] : SetVariables()) variables[name] = value;
  return {{"library",
           {{"build", report.library.banner},
            {"version", report.library.version},
            {"file", report.library.path}}},
          {"locks",
           {{"default_design", "test-and-set"}, {"spin_budget", KIV_SDSYNC_BUSYSPIN_UPPERLIMIT}}},
          {"configuration",
           {{"file", report.configuration.path}, {"exists", report.configuration.exists}}},
          {"environment", variables},
          {"machine", JsonOfMachine(report)}};
}

}  // namespace

int InfoCommand(const InfoOptions& options) {
  const Report report = Collect(options);
  if (options.format == Format::kJson) {
    PrintJson(JsonOf(report));
  } else {
    PrintText(report);
  }
  return IsComplete(report) ? kExitDone : kExitFound;
}

}  // namespace kivsd
