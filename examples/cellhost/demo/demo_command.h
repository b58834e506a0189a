// `cellhost demo`: a server and its clients, in several processes. One client is killed in the
// middle of its queries. Others change cells. One makes the server allocate more memory than its
// limit. Finally all answers are compared again. The clients use the control pipe or shared memory;
// with shared memory, an additional client receives the chunk of the killed one.
#ifndef CELLHOST_DEMO_DEMO_COMMAND_H
#define CELLHOST_DEMO_DEMO_COMMAND_H

#include <string>

#include "client/server_client.h"
#include "host/lock_design.h"

namespace cellhost {

struct DemoOptions {
  std::string facts;
  std::string queries;
  std::string answers;
  std::string puts;
  std::string answersAfter;  // expected answers after all PUTs, in any order
  std::string pipe;
  Road road;           // for the clients
  std::string memory;  // for the server; see CommandLine
  bool failover;       // for the server
  bool inMemory;       // the server keeps no files and is not killed
};

// Returns the program's exit code. It is 0 only if
//
//   - every answer agrees and every PUT was carried out
//   - if the server was refused memory, it was warned before and freed all of it
//   - the server noticed the killed client and ended cleanly
//   - with files: no stored PUT was lost, and the backups have the right cells
//
// The thread must have a record.
//
//   locks  lock design of the server
int DemoCommand(const DemoOptions& options, LockDesign locks);

}  // namespace cellhost

#endif
