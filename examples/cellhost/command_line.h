// The command line: which command, with which options.
#ifndef CELLHOST_COMMAND_LINE_H
#define CELLHOST_COMMAND_LINE_H

#include <string>

#include "client/ask_command.h"
#include "demo/demo_command.h"
#include "host/host.h"
#include "host/lock_design.h"
#include "host/run_command.h"
#include "server/serve_command.h"

namespace cellhost {

enum class Command { kRun, kReport, kServe, kAsk, kSend, kDemo };

struct CommandLine {
  Command command;
  LockDesign locks;
  Failover failover;
  std::string memory;  // folder with bin/config.mem; empty: none is named
  RunOptions run;
  ServeOptions serve;
  AskOptions ask;
  SendOptions send;
  DemoOptions demo;
};

// Reads the arguments of main. False when there is nothing to do but to return *exitCode: help
// was asked for, or the line was wrong, which has then been told.
bool ReadCommandLine(int count, char** arguments, CommandLine* line, int* exitCode);

}  // namespace cellhost

#endif
