// A small slice of a cell server, which uses the library as its real host does: it starts it up,
// gives each thread its record, keeps names on memory stacks and cells in reallocated blocks,
// and answers queries. Here are only the program's start and end.
//
//   command_line                      which command
//     run_command  system_report      the commands of one process
//       fact_loader csv_reader        facts into a cube
//       query answer answer_check     queries, answers, comparison
//       line_file words               files of queries or orders, and their words
//     serve_command                   the server of many clients
//       connection pipe_server        a thread for each client, commands
//       worker request_ring service   threads that do what clients ask, what all of them share
//       cell_cache put_order          the cells that they share, changing them
//       hog                           memory to the limit
//       cell_files                    the cells in files, from one start to the next
//         page_file cell_page         their blocks
//         journal journal_record      each PUT since
//         cell_index checksum         cells as files have them
//         backup write_pause          copies of one moment
//         folder_mark rename_file     what a folder must have in it, names of files
//     ask_command  pipe_client        its clients
//       protocol pipe_end waiting     messages, pipes, time limits
//     segment_server segment_client   both over shared memory
//       chunk_service chunk_channel   a client's chunk, what goes through it
//       server_client pipe_watch      a client by either road, whether the other end is there
//     demo_command demo_client        a server and clients, each a process
//       demo_writer demo_segment      clients that change cells, clients over shared memory
//       demo_files demo_counter       backups, and a server that is killed under PUTs
//       demo_server                   servers of the demo
//       child_process own_process     processes
//     cube dimension cell_table       the data
//       hash_index text_stack scratch host_memory    memory, from the library
//   memory_manager request_heap       how it gives memory; a request's own
//   host host_thread thread_record    the library's start-up, threads, what each thread has
#include <stdlib.h>

#include <string>

#include "command_line.h"
#include "host/complain.h"
#include "host/exit_code.h"
#include "host/host.h"
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

// Who keeps cells has memory as configured. Clients hold little, and the library lists its
// configuration on the standard output, where they have answers.
MemoryUse MemoryOf(Command command) {
  const bool keepsCells = command == Command::kRun || command == Command::kServe;
  return keepsCells ? MemoryUse::kAsConfigured : MemoryUse::kPlain;
}

// The library looks for its configuration below what MOLTAPATH names.
bool NameConfiguration(const std::string& folder) {
  if (folder.empty()) return true;
  if (_putenv(("MOLTAPATH=" + folder).c_str()) == 0) return true;
  return Complain("could not set MOLTAPATH to '%s'", folder.c_str());
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
  exitCode = Do(line);
  StopHost();
  return exitCode;
}
