// The program's exit codes.
#ifndef CELLHOST_HOST_EXIT_CODE_H
#define CELLHOST_HOST_EXIT_CODE_H

namespace cellhost {

constexpr int kExitDone = 0;
constexpr int kExitAnswersDiffer = 1;
constexpr int kExitFailed = 2;  // bad input, a wrong command line, or the system failed

}  // namespace cellhost

#endif
