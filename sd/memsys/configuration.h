// The memory configuration file: reading it, and the ranges that its settings are held to.
#ifndef KIV_MEMSYS_CONFIGURATION_H
#define KIV_MEMSYS_CONFIGURATION_H

#include <cstdio>

#include "memsys/settings.h"

namespace kiv {

// The settings that hold until a file says otherwise.
MemorySettings DefaultMemorySettings();

// Opens "config.mem.<suffix>", or else "config.mem", in the folder "bin" of the product's
// directory, which MOLTAPATH names, and takes its settings. An open file, or `force` by itself,
// selects heaps and memory control; without either the settings stay as they are.
void ReadMemoryConfiguration(const char* suffix, bool force, MemorySettings* settings);

// Takes the settings of an open file: words in pairs of a keyword and its value, and keywords by
// themselves. A later one of the same name wins. Reports what it does not understand on standard
// output.
void ParseMemoryConfiguration(std::FILE* file, MemorySettings* settings);

// Holds the settings to their ranges. A limit too small to run with selects plain mode and is
// reported on standard output. In plain mode the other ranges do not matter and are not held.
void ValidateMemorySettings(MemorySettings* settings);

// Writes the listing of the configuration to standard output.
void ListMemoryConfiguration(const MemorySettings& settings);

}  // namespace kiv

#endif
