#include "memconf/reading.h"

#include <cstdio>

#include "capture.h"
#include "memsys/configuration.h"
#include "scratch_file.h"

namespace kivsd {
namespace {

// The settings with which a start begins to read a file.
kiv::MemorySettings SettingsOfAStart() {
  kiv::MemorySettings settings = kiv::DefaultMemorySettings();
  settings.memoryControl = true;
  settings.threadHeaps = kiv::kConfiguredThreadHeaps;
  return settings;
}

}  // namespace

Reading ReadSettings(const std::string& text) {
  const ScratchFile scratch(text);
  std::FILE* file = scratch.Open();
  Reading reading = {SettingsOfAStart(), {}};
  Capture capture;
  kiv::ParseMemoryConfiguration(file, &reading.settings);
  reading.messages = capture.End();
  std::fclose(file);
  return reading;
}

Reading Validated(kiv::MemorySettings settings) {
  Capture capture;
  kiv::ValidateMemorySettings(&settings);
  return {settings, capture.End()};
}

uint64_t FirstHeapBytes(const kiv::MemorySettings& settings) {
  if (settings.threadHeaps == 0 || settings.largestBlockBytes == 0) return 0;
  return static_cast<uint64_t>(settings.threadHeaps + kiv::kSpareHeaps) * settings.heapBytes;
}

}  // namespace kivsd
