// kivsd info: the machine as the library sees it, and the library itself.
#ifndef KIVSD_INFO_INFO_COMMAND_H
#define KIVSD_INFO_INFO_COMMAND_H

#include <string>

#include "output.h"

namespace kivsd {

struct InfoOptions {
  std::string suffix;  // of the configuration file, as the host passes it
  Format format = Format::kText;
};

// Returns kExitDone, or kExitFound if a part of the report is not available.
int InfoCommand(const InfoOptions& options);

}  // namespace kivsd

#endif
