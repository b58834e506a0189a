// The memory configuration file: reads it and holds its settings to their ranges.
#ifndef KIV_MEMSYS_CONFIGURATION_H
#define KIV_MEMSYS_CONFIGURATION_H

#include <cstdio>

#include "memsys/configuration_words.h"
#include "memsys/settings.h"

namespace kiv {

// Returns the settings that apply without a file.
MemorySettings DefaultMemorySettings();

// Opens "config.mem.<suffix>", or else "config.mem", in the folder "bin" of the product's directory,
// which MOLTAPATH names. Null if neither can be opened. `name` must be empty; it receives the path
// of the file that was opened, or of the last one that was tried. The caller closes the file.
std::FILE* OpenMemoryConfiguration(const char* suffix, GrowingText* name);

// Reads the settings from the file that OpenMemoryConfiguration opens. If a file can be opened or
// `force` is set, thread heaps and memory control are turned on; otherwise the settings are
// unchanged.
void ReadMemoryConfiguration(const char* suffix, bool force, MemorySettings* settings);

// Reads the settings from an open file of keywords, some followed by a value. If a keyword is
// repeated, the last one wins. Errors are reported on standard output and skipped.
void ParseMemoryConfiguration(std::FILE* file, MemorySettings* settings);

// Clamps the settings to their ranges. A limit that is too small is reported on standard output and
// selects plain mode. In plain mode the other settings are not used and not clamped.
void ValidateMemorySettings(MemorySettings* settings);

// Writes the listing of the configuration to standard output.
void ListMemoryConfiguration(const MemorySettings& settings);

}  // namespace kiv

#endif
