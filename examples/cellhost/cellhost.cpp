// Start and end of the example server, a small cell server that uses the library as a real host
// does. Each folder includes only folders above it in this list:
//
//   host/     the library's start-up, threads, memory, input files, messages, console output
//   channel/  what server and clients share: protocol, ends of a pipe, chunks of a segment
//   cube/     the cells in memory, queries and orders, facts; the command `run`
//   storage/  the cells in files: pages, journal, backups
//   server/   the command `serve`: connections, request ring, workers
//   client/   the commands `ask` and `send`: clients over a pipe and over shared memory
//   demo/     the command `demo`: a server and clients, each a process
#include <stdlib.h>

#include <string>

#include "command_line.h"
#include "host/complain.h"
#include "host/exit_code.h"
#include "host/host.h"
#include "host/memory_manager.h"
#include "host/platform.h"
#include "host/system_report.h"

using namespace cellhost;

namespace {

int Do(const CommandLine& line) {
  switch (line.command) {
    case Command::kRun:
      return RunCommand(line.run);
    case Command::kReport:
      return ReportCommand();
    case Command::kServe:
      return ServeCommand(line.serve, line.locks);
    case Command::kAsk:
      return AskCommand(line.ask);
    case Command::kSend:
      return SendCommand(line.send);
    case Command::kDemo:
      return DemoCommand(line.demo, line.locks);
  }
  return kExitFailed;
}

// Only commands that keep cells use the configured memory. Clients need little memory, and the
// library would list its configuration on their standard output, between the answers.
MemoryUse MemoryOf(Command command) {
  const bool keepsCells = command == Command::kRun || command == Command::kServe;
  return keepsCells ? MemoryUse::kAsConfigured : MemoryUse::kPlain;
}

// The library looks for its configuration below the folder that MOLTAPATH names.
bool NameConfiguration(const std::string& folder) {
  if (folder.empty()) return true;
  const uint32_t error = SetVariable("MOLTAPATH", folder.c_str());
  if (error == 0) return true;
  return Complain("could not set MOLTAPATH to '%s': OS error %u", folder.c_str(), error);
}

}  // namespace

int main(int count, char** arguments) {
  CommandLine line = {};
  int exitCode = kExitDone;
  if (!ReadCommandLine(count, arguments, &line, &exitCode)) return exitCode;
  if (!NameConfiguration(line.memory) ||
      !StartHost(line.locks, MemoryOf(line.command), line.failover)) {
    return kExitFailed;
  }
  exitCode = !line.publish || PublishMemory() ? Do(line) : kExitFailed;
  StopHost();
  return exitCode;
}
