// `cellhost serve`: loads the facts and serves clients on the control pipe until one of them
// says STOP.
#ifndef CELLHOST_SERVER_SERVE_COMMAND_H
#define CELLHOST_SERVER_SERVE_COMMAND_H

#include <string>
#include <string_view>

#include "host/lock_design.h"

namespace cellhost {

// Follows, in what the server prints when it starts, how many PUTs its journal had.
constexpr std::string_view kCarriedOutAgain = " PUTs carried out again";

struct ServeOptions {
  std::string facts;
  std::string pipe;
  std::string data;  // folder of the cells' files; empty: there are none
};

// The program's exit code.
//
//   locks  what StartHost was told, to be shown
//
// On a thread with a record.
int ServeCommand(const ServeOptions& options, LockDesign locks);

}  // namespace cellhost

#endif
