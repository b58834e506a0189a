// Has the library's own reader read a memory configuration.
#ifndef KIVSD_MEMCONF_READING_H
#define KIVSD_MEMCONF_READING_H

#include <string>

#include "memsys/settings.h"

namespace kivsd {

struct Reading {
  kiv::MemorySettings settings;
  std::string messages;  // what the reader printed; empty if it has no complaint
};

// Reads a text as the content of a file that a host's start opened.
Reading ReadSettings(const std::string& text);

// Holds settings to their ranges, as a host's start does.
Reading Validated(kiv::MemorySettings settings);

// Bytes of the heaps that a host's start makes; a limit below them makes the start fail. 0 in plain
// mode.
uint64_t FirstHeapBytes(const kiv::MemorySettings& settings);

}  // namespace kivsd

#endif
