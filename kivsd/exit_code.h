// The exit codes of the command, which --help and docs/kivsd.md list.
#ifndef KIVSD_EXIT_CODE_H
#define KIVSD_EXIT_CODE_H

namespace kivsd {

constexpr int kExitDone = 0;
constexpr int kExitFound = 1;   // the answer is no: nothing found, findings in a file, a failed run
constexpr int kExitFailed = 2;  // wrong arguments, or the command could not do its work

}  // namespace kivsd

#endif
