// The command kivsd; see docs/kivsd.md.
#include <cstdio>
#include <exception>

#include "command_line.h"
#include "exit_code.h"

int main(int count, char** arguments) {
  try {
    return kivsd::RunCommandLine(count, arguments);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kivsd: %s\n", failure.what());
    return kivsd::kExitFailed;
  }
}
