// `cellhost demo`: a server and its clients, each a process of its own; one client that is killed
// in the middle of its queries; clients that change cells; and one that has the server take more
// memory than it gets, after which all answers are compared anew. Over the control pipe, or over
// shared memory, where a client too many gets the chunk of the one that is killed.
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
  std::string answersAfter;  // when all PUTs are carried out, in any order
  std::string pipe;
  Road road;           // of the clients
  std::string memory;  // the server's; see CommandLine
  bool failover;       // of the server
  bool inMemory;       // the server keeps no files, and is not killed
};

// The program's exit code, 0 only if every answer agrees, every PUT was carried out, memory that
// was refused was warned of and given back, the lost
// client was noticed and the server ended cleanly. On a thread with a record.
//
//   locks  the server's
int DemoCommand(const DemoOptions& options, LockDesign locks);

}  // namespace cellhost

#endif
