// kivsd status: explains a status of the library.
#ifndef KIVSD_STATUS_STATUS_COMMAND_H
#define KIVSD_STATUS_STATUS_COMMAND_H

#include <string>

#include "output.h"

namespace kivsd {

struct StatusOptions {
  std::string word;  // a number, a name or a part of a name; empty for all statuses
  Format format = Format::kText;
};

// Returns kExitDone, or kExitFound if no status matches.
int StatusCommand(const StatusOptions& options);

}  // namespace kivsd

#endif
