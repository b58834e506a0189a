// The demo's clients that change one cell repeatedly.
#ifndef CELLHOST_DEMO_DEMO_COUNTER_H
#define CELLHOST_DEMO_DEMO_COUNTER_H

#include <stdint.h>

#include <atomic>
#include <string>
#include <string_view>

#include "client/pipe_client.h"
#include "host/host_thread.h"

namespace cellhost {

// A client on its own thread, with its own connection. It stores 1, 2, 3 and so on in a cell that
// no other client changes, until its server has gone. The cell must then hold the last number for
// which the client received "stored", or the next number, which was under way.
class DemoCounter {
 public:
  // Starts the thread. Returns false on failure, after reporting it.
  //
  //   cell  a member of each dimension, as in a PUT
  bool Start(const char* pipe, std::string_view cell);

  // Waits for the end of the thread. Returns false if the server refused a PUT, after reporting it.
  bool Finish();

  // The last number for which the server replied "stored".
  uint32_t stored() const { return stored_.load(std::memory_order_relaxed); }

  // Asks a server for the cell's number. Returns false without an answer or such a cell, after
  // reporting it.
  bool Ask(PipeClient* server, uint32_t* number) const;

 private:
  void Run();
  bool Store(PipeClient* server, uint32_t number, bool* gone);

  const char* pipe_ = nullptr;
  std::string cell_;
  std::atomic<uint32_t> stored_{0};  // relaxed: orders nothing
  bool done_ = false;                // written by the thread before it ends
  HostThread thread_;                // last: the thread uses the other members until it has ended
};

}  // namespace cellhost

#endif
