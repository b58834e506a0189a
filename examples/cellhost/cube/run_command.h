// `cellhost run`: loads the facts, answers the queries, compares the answers.
#ifndef CELLHOST_CUBE_RUN_COMMAND_H
#define CELLHOST_CUBE_RUN_COMMAND_H

#include <string>

namespace cellhost {

struct RunOptions {
  std::string facts;
  std::string queries;
  std::string answers;  // empty: the answers are only printed
};

// Returns the program's exit code. The thread must have a record.
int RunCommand(const RunOptions& options);

}  // namespace cellhost

#endif
