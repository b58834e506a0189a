// Reads arbitrary bytes as a memory configuration file, validates the settings and lists them.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/input.h"
#include "memsys/configuration.h"

namespace {

using kiv::fuzz::Check;

// The output is discarded, but it must be written so that the formatting code runs.
void SilenceStandardOutput() {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
}

template <typename Number>
bool IsWithin(Number number, Number least, Number most) {
  return least <= number && number <= most;
}

kiv::MemorySettings Parsed(const uint8_t* bytes, size_t count) {
  kiv::MemorySettings settings = kiv::DefaultMemorySettings();
  std::FILE* file = fmemopen(const_cast<uint8_t*>(bytes), count, "r");
  Check(file != nullptr, "the bytes can be opened");
  kiv::ParseMemoryConfiguration(file, &settings);
  std::fclose(file);
  return settings;
}

// Checks the fill bytes.
void CheckUntouched(const kiv::MemorySettings& settings) {
  Check(settings.allocatedFill == 0xFF, "no file sets the fill byte of allocated blocks");
  Check(settings.freedFill <= 9 || settings.freedFill == 0xAB,
        "the fill byte of freed blocks is a digit or the default");
}

void CheckPlainMode(const kiv::MemorySettings& settings) {
  Check(!settings.shortHeaps, "there are no short heaps in plain mode");
  Check(!settings.limitRejected || !settings.memoryControl,
        "a rejected limit turns memory control off");
}

void CheckRanges(const kiv::MemorySettings& settings) {
  Check(!settings.limitRejected, "a rejected limit selects plain mode");
  Check(IsWithin(settings.threadHeaps, 4, 64), "numthreadheaps");
  Check(IsWithin(settings.heapBytes, 0x80000u, 0x1000000u), "heapsize");
  Check(!settings.shortHeaps || IsWithin(settings.shortHeapBytes, 0x50000u, 0x1000000u),
        "shortheapsize");
  Check(settings.largestBlockBytes <= 0x40000, "maxblock");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  SilenceStandardOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  kiv::MemorySettings settings = Parsed(bytes, count);
  kiv::ValidateMemorySettings(&settings);
  CheckUntouched(settings);
  const bool tooSmall = settings.limitBytes != 0 && settings.limitBytes < 10485760;
  Check(settings.limitRejected == tooSmall, "memorylimit");
  if (settings.threadHeaps == 0) {
    CheckPlainMode(settings);
  } else {
    CheckRanges(settings);
  }
  kiv::ListMemoryConfiguration(settings);
  return 0;
}
