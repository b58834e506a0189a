// The library that this process has loaded, and the memory configuration that a host would read.
#ifndef KIVSD_INFO_LIBRARY_INFO_H
#define KIVSD_INFO_LIBRARY_INFO_H

#include <string>
#include <utility>
#include <vector>

#include "json_forward.h"

namespace kivsd {

struct LibraryInfo {
  std::string banner;   // version, platform, compiler, kind of build; empty if not registered
  std::string version;  // such as "0.1"
  std::string path;
};
LibraryInfo DescribeLibrary();

struct ConfigurationInfo {
  std::string moltaPath;  // the variable MOLTAPATH; empty if it is not set
  std::string path;       // the file that a host would read
  bool exists = false;
};
ConfigurationInfo DescribeConfiguration(const std::string& suffix);

// The variables of the environment that the library reads and that are set, with their values.
std::vector<std::pair<std::string, std::string>> SetVariables();

}  // namespace kivsd

#endif
