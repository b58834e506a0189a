// The command's arguments.
#ifndef KIVSD_COMMAND_LINE_H
#define KIVSD_COMMAND_LINE_H

namespace kivsd {

// Reads the arguments and runs the subcommand. Returns the exit code.
int RunCommandLine(int count, char** arguments);

}  // namespace kivsd

#endif
