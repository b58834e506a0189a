// Examines a memory configuration: what each keyword sets, and what does not do what it seems to.
#ifndef KIVSD_MEMCONF_CHECK_H
#define KIVSD_MEMCONF_CHECK_H

#include <cstddef>
#include <string>
#include <vector>

#include "memconf/keyword.h"
#include "memsys/settings.h"

namespace kivsd {

// A keyword of the file that the reader accepted.
struct Entry {
  size_t line;
  const Keyword* keyword;
  std::string word;    // its value as it stands in the file; empty for a flag
  std::string asRead;  // the setting after reading it
  kiv::MemorySettings settings;
};

struct Finding {
  size_t line;  // 0 if it concerns the whole file
  std::string text;
};

struct Examination {
  std::vector<Entry> entries;     // in the order of the file
  std::vector<Finding> findings;  // by line
  kiv::MemorySettings settings;   // in use after a start with the file
  std::string messages;           // what a start prints about the file
};

// Examines the content of a file.
Examination Examine(const std::string& text);

}  // namespace kivsd

#endif
