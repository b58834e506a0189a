// The command line: the command and its options.
#ifndef CELLHOST_COMMAND_LINE_H
#define CELLHOST_COMMAND_LINE_H

#include <string>

#include "client/ask_command.h"
#include "cube/run_command.h"
#include "demo/demo_command.h"
#include "host/host.h"
#include "host/lock_design.h"
#include "server/serve_command.h"

namespace cellhost {

enum class Command { kRun, kReport, kServe, kAsk, kSend, kDemo };

struct CommandLine {
  Command command;
  LockDesign locks;
  Failover failover;
  std::string memory;  // folder with bin/config.mem; empty: none is named
  bool publish;        // the memory in use, for 'kivsd top'
  RunOptions run;
  ServeOptions serve;
  AskOptions ask;
  SendOptions send;
  DemoOptions demo;
};

// Reads the arguments of main. Returns false if the program must end with *exitCode: help was
// asked for, or the arguments are wrong and the error was reported.
bool ReadCommandLine(int count, char** arguments, CommandLine* line, int* exitCode);

}  // namespace cellhost

#endif
