// The memory configuration file: reading it, and the ranges that its settings are held to.
#ifndef KIV_MEMSYS_CONFIGURATION_H
#define KIV_MEMSYS_CONFIGURATION_H

#include <cstdio>

#include "memsys/settings.h"

namespace kiv {

// The settings that hold until a file says otherwise.
MemorySettings DefaultMemorySettings();

// Opens "config.mem.<suffix>", or "config.mem", below the product's directory, and takes its
// settings. Without a file, and unless forced, the settings stay as they are.
void ReadMemoryConfiguration(const char* suffix, bool force, MemorySettings* settings);

// Takes the settings of an open file. Reports what it does not understand on standard output.
void ParseMemoryConfiguration(std::FILE* file, MemorySettings* settings);

// Holds the settings to their ranges. A limit too small to run with selects plain mode and is
// reported on standard output.
void ValidateMemorySettings(MemorySettings* settings);

// Writes the listing of the configuration to standard output.
void ListMemoryConfiguration(const MemorySettings& settings);

}  // namespace kiv

#endif
