// Prints, compares and parses settings of the memory manager in tests.
#ifndef KIV_TESTS_MEMORY_SETTINGS_H
#define KIV_TESTS_MEMORY_SETTINGS_H

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <tuple>

#include "memsys/configuration.h"
#include "support/temporary_folder.h"

namespace kiv {

// In the namespace of the settings, so that argument-dependent lookup finds them.
inline auto Fields(const MemorySettings& s) {
  return std::tuple(s.heapBudget, s.threadHeaps, s.heapBytes, s.shortHeapBytes, s.largestBlockBytes,
                    s.limitBytes, int{s.allocatedFill}, int{s.freedFill}, s.shortPoolMost,
                    s.shortPoolDrainedAbove, s.memoryControl, s.blockStatistics, s.shortHeaps,
                    s.limitRejected);
}

inline bool operator==(const MemorySettings& one, const MemorySettings& other) {
  return Fields(one) == Fields(other);
}

inline void PrintTo(const MemorySettings& settings, std::ostream* out) {
  *out << testing::PrintToString(Fields(settings));
}

}  // namespace kiv

namespace kiv::test {

// Returns the text that a call prints on standard output.
inline std::string PrintedBy(const std::function<void()>& call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

// The defaults with some of them changed.
inline MemorySettings Defaults(const std::function<void(MemorySettings*)>& change) {
  MemorySettings settings = DefaultMemorySettings();
  change(&settings);
  return settings;
}

struct Parsed {
  MemorySettings settings;
  std::string printed;

  bool operator==(const Parsed&) const = default;
};

inline void PrintTo(const Parsed& parsed, std::ostream* out) {
  PrintTo(parsed.settings, out);
  *out << " and \"" << parsed.printed << '"';
}

// Applies a configuration file of these bytes to `settings`. Line ends are not translated.
inline Parsed ParseOver(MemorySettings settings, const std::string& bytes) {
  static const TemporaryFolder folder;
  folder.Write("parsed", bytes);
  std::FILE* file = std::fopen(folder.Path("parsed").c_str(), "rb");
  if (file == nullptr) {
    ADD_FAILURE() << "the file cannot be read back";
    return {};
  }
  const std::string printed = PrintedBy([&] { ParseMemoryConfiguration(file, &settings); });
  std::fclose(file);
  return {settings, printed};
}

inline Parsed Parse(const std::string& bytes) { return ParseOver(DefaultMemorySettings(), bytes); }

}  // namespace kiv::test

#endif
