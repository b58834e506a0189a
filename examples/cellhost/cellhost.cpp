// A small slice of a cell server, which uses the library as its real host does: it starts it up,
// gives each thread its record, keeps names on memory stacks and cells in reallocated blocks,
// and answers queries. Here are only the program's start and end.
//
//   command_line                      which command
//     run_command  system_report      the commands
//       fact_loader csv_reader        facts into a cube
//       query answer answer_check     queries, answers, comparison
//     cube dimension cell_table       the data
//       hash_index text_stack scratch host_memory    memory, from the library
//   host thread_record                the library's start-up, and what each thread has
#include "command_line.h"
#include "exit_code.h"
#include "host.h"
#include "system_report.h"

using namespace cellhost;

int main(int count, char** arguments) {
  CommandLine line = {};
  int exitCode = kExitDone;
  if (!ReadCommandLine(count, arguments, &line, &exitCode)) return exitCode;
  if (!StartHost()) return kExitFailed;
  exitCode = line.command == Command::kReport ? ReportCommand() : RunCommand(line.run);
  StopHost();
  return exitCode;
}
