// kivsd ls: lists named objects that are alive.
#ifndef KIVSD_LS_LS_COMMAND_H
#define KIVSD_LS_LS_COMMAND_H

#include "output.h"

namespace kivsd {

struct LsOptions {
  Format format = Format::kText;
};

// Always returns kExitDone: that nothing is alive is an answer too.
int LsCommand(const LsOptions& options);

}  // namespace kivsd

#endif
