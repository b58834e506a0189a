// A server process that the demo starts.
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
  // Starts the server. Returns false on failure, after reporting it.
  //
  //   pipe  name of its control pipe
  //   data  folder of its files; empty: cells only in memory
  bool Start(const DemoOptions& options, LockDesign locks, const std::string& pipe,
             const std::string& data);

  // Waits until the server accepts clients, and prints how long that took. Returns false if it does
  // not, after reporting it.
  bool AwaitReady();

  // Stores the number of PUTs that the server has applied from its journal. Call it after
  // AwaitReady.
  bool Replayed(uint32_t* puts);

  // Stops the server and waits for its end. Returns false on failure, after reporting it.
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
