// Finds and opens the memory configuration file.
#include "memsys/configuration.h"

#include "memsys/configuration_words.h"
#include "os/environment.h"
#include "os/path.h"

namespace kiv {
namespace {

constexpr char kDirectoryVariable[] = "MOLTAPATH";
constexpr char kDefaultDirectory[] = {os::kPathSeparator, 'M', 'O', 'L', 'T', 'A',
                                      os::kPathSeparator, '\0'};
constexpr char kFolder[] = "bin";
constexpr char kFile[] = "config.mem";
constexpr char kSuffixMark = '.';

// Appends the file's path without a suffix. False when there is no memory.
bool AppendBaseName(GrowingText* name) {
  const char* directory = os::EnvironmentValue(kDirectoryVariable);
  if (!name->Append(directory != nullptr ? directory : kDefaultDirectory)) return false;
  if (!name->EndsWith(os::kPathSeparator) && !name->Append(os::kPathSeparator)) return false;
  return name->Append(kFolder) && name->Append(os::kPathSeparator) && name->Append(kFile);
}

}  // namespace

// With an empty suffix the first name ends in a dot, which Windows ignores. A name for which there
// is no memory counts as a missing file.
std::FILE* OpenMemoryConfiguration(const char* suffix, GrowingText* name) {
  if (!AppendBaseName(name)) return nullptr;
  const size_t baseLength = name->length();
  if (name->Append(kSuffixMark) && name->Append(suffix)) {
    std::FILE* file = std::fopen(name->text(), "r");
    if (file != nullptr) return file;
  }
  name->Shorten(baseLength);
  return std::fopen(name->text(), "r");
}

void ReadMemoryConfiguration(const char* suffix, bool force, MemorySettings* settings) {
  GrowingText name;
  std::FILE* file = OpenMemoryConfiguration(suffix, &name);
  if (file == nullptr && !force) return;
  settings->memoryControl = true;
  settings->threadHeaps = kConfiguredThreadHeaps;
  if (file == nullptr) return;
  ParseMemoryConfiguration(file, settings);
  static_cast<void>(std::fclose(file));
}

}  // namespace kiv
