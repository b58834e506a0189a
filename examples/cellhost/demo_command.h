// `cellhost demo`: a server and its clients, each a process of its own, and one client that is
// killed in the middle of its queries.
#ifndef CELLHOST_DEMO_COMMAND_H
#define CELLHOST_DEMO_COMMAND_H

#include <string>

namespace cellhost {

struct DemoOptions {
  std::string facts;
  std::string queries;
  std::string answers;
  std::string pipe;
};

// given: what the command line says. The program's exit code, 0 only if every answer agrees, the
// lost client was noticed and the server ended cleanly. On a thread with a record.
int DemoCommand(const DemoOptions& options);

}  // namespace cellhost

#endif
