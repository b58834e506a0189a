// kivsd stress: uses the library's parts at once for a while, and checks them.
#ifndef KIVSD_STRESS_STRESS_COMMAND_H
#define KIVSD_STRESS_STRESS_COMMAND_H

#include <cstdint>
#include <string>
#include <vector>

#include "output.h"

namespace kivsd {

struct StressOptions {
  uint32_t seconds = 60;
  uint32_t threads = 0;               // of each subject; 0: as many as processors, at least 2
  bool tickets = false;               // the design of the spinlocks and heap locks
  std::vector<std::string> subjects;  // "locks", "heaps", "files", "segments"; empty: all
  Format format = Format::kText;
};

// Returns kExitDone if everything held, kExitFound otherwise.
int StressCommand(const StressOptions& options);

}  // namespace kivsd

#endif
