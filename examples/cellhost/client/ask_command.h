// `cellhost ask` and `cellhost send`: clients of a running server.
#ifndef CELLHOST_CLIENT_ASK_COMMAND_H
#define CELLHOST_CLIENT_ASK_COMMAND_H

#include <stdint.h>

#include <string>

#include "client/server_client.h"

namespace cellhost {

struct AskOptions {
  std::string pipe;
  Road road;
  uint32_t waitSeconds;  // how long to wait for the server to start
  std::string queries;
  std::string answers;  // expected answers; empty: print the answers
  bool endless;         // repeat the queries until the program is ended
};

// Sends every query. Returns the program's exit code: 0 only if all answers agree with the expected
// answers. The thread must have a record.
int AskCommand(const AskOptions& options);

struct SendOptions {
  std::string pipe;
  Road road;
  uint32_t waitSeconds;
  std::string command;
};

// Sends one command and prints the reply. Returns the program's exit code.
int SendCommand(const SendOptions& options);

}  // namespace cellhost

#endif
