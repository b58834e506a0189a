// kivsd top: the memory of a running host.
#ifndef KIVSD_TOP_TOP_COMMAND_H
#define KIVSD_TOP_TOP_COMMAND_H

#include <cstdint>
#include <string>

#include "output.h"

namespace kivsd {

struct TopOptions {
  std::string host;    // a process identifier or a host's name; empty for the only host
  bool list = false;   // list the hosts instead
  uint64_t count = 0;  // samples to show; 0 until the host ends
  double seconds = 1;  // between two samples
  Format format = Format::kText;
};

// Returns kExitDone, or kExitFound if the list is empty.
int TopCommand(const TopOptions& options);

}  // namespace kivsd

#endif
