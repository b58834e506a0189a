// `cellhost serve`: loads the facts and serves clients on the control pipe until one of them sends
// STOP.
#ifndef CELLHOST_SERVER_SERVE_COMMAND_H
#define CELLHOST_SERVER_SERVE_COMMAND_H

#include <string>
#include <string_view>

#include "host/lock_design.h"

namespace cellhost {

// Text that the server prints at its start, behind the number of PUTs that it applied again.
constexpr std::string_view kCarriedOutAgain = " PUTs carried out again";

struct ServeOptions {
  std::string facts;
  std::string pipe;
  std::string data;  // folder of the cells' files; empty: cells only in memory
};

// Returns the program's exit code. The thread must have a record.
//
//   locks  the lock design given to StartHost, for display
int ServeCommand(const ServeOptions& options, LockDesign locks);

}  // namespace cellhost

#endif
