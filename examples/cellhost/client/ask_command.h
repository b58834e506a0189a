// `cellhost ask` and `cellhost send`: clients of a server that runs.
#ifndef CELLHOST_CLIENT_ASK_COMMAND_H
#define CELLHOST_CLIENT_ASK_COMMAND_H

#include <stdint.h>

#include <string>

#include "client/server_client.h"

namespace cellhost {

struct AskOptions {
  std::string pipe;
  Road road;
  uint32_t waitSeconds;  // for a server that is not there yet
  std::string queries;
  std::string answers;  // empty: the answers are printed
  bool endless;         // the queries are asked over and over until the program is ended
};

// Asks every query; the program's exit code, 0 only if all answers agree with the expected ones.
// On a thread with a record.
int AskCommand(const AskOptions& options);

struct SendOptions {
  std::string pipe;
  Road road;
  uint32_t waitSeconds;
  std::string command;
};

// Sends one command and prints the reply; the program's exit code.
int SendCommand(const SendOptions& options);

}  // namespace cellhost

#endif
