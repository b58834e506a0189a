// A server that the demo starts, a process of its own.
#ifndef CELLHOST_DEMO_DEMO_SERVER_H
#define CELLHOST_DEMO_DEMO_SERVER_H

#include <stdint.h>

#include <string>

#include "demo/child_process.h"
#include "demo/demo_command.h"
#include "host/lock_design.h"
#include "host/stopwatch.h"

namespace cellhost {

class DemoServer {
 public:
  // Starts it. False on failure, which has then been told.
  //
  //   pipe  its own
  //   data  the folder of its files; empty: it has none
  bool Start(const DemoOptions& options, LockDesign locks, const std::string& pipe,
             const std::string& data);

  // Waits until it has loaded its cells and made its pipe, and prints that. False if it does not,
  // which has then been told.
  bool AwaitReady();

  // How many PUTs it has carried out again from its journal; after AwaitReady.
  bool Replayed(uint32_t* puts);

  // Has it end, and waits for that. False on failure, which has then been told.
  bool Stop();

  const std::string& pipe() const { return pipe_; }
  ChildProcess& process() { return process_; }

 private:
  std::string pipe_;
  Stopwatch sinceStart_;
  ChildProcess process_;
};

}  // namespace cellhost

#endif
