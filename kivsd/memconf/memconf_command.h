// kivsd memconf: checks a memory configuration file, and writes a new one.
#ifndef KIVSD_MEMCONF_MEMCONF_COMMAND_H
#define KIVSD_MEMCONF_MEMCONF_COMMAND_H

#include <map>
#include <string>

#include "output.h"

namespace kivsd {

struct MemconfCheckOptions {
  std::string file;
  Format format = Format::kText;
};

// Returns kExitDone, or kExitFound if the file has something that does not do what it seems to.
int MemconfCheckCommand(const MemconfCheckOptions& options);

struct MemconfNewOptions {
  std::string file;  // empty: standard output
  bool overwrite = false;
  bool ask = false;                           // ask for the values that are not given
  std::map<std::string, std::string> values;  // by keyword; "" for a flag
  Format format = Format::kText;
};

// Returns kExitDone. Writes nothing and returns kExitFound if the file would have findings.
int MemconfNewCommand(MemconfNewOptions options);

}  // namespace kivsd

#endif
