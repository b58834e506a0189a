// The demo's clients that change one cell over and over.
#ifndef CELLHOST_DEMO_DEMO_COUNTER_H
#define CELLHOST_DEMO_DEMO_COUNTER_H

#include <stdint.h>

#include <atomic>
#include <string>
#include <string_view>

#include "client/pipe_client.h"
#include "host/host_thread.h"

namespace cellhost {

// A client on a thread of its own, with its own connection: it stores 1 in a cell that no other
// client changes, then 2, and so on, until its server is gone. What the cell has then is the last
// number that the server called stored, or the one after it, which was under way.
class DemoCounter {
 public:
  // Starts it. False on failure, which has then been told.
  //
  //   cell  a member of each dimension, as a PUT names them
  bool Start(const char* pipe, std::string_view cell);

  // Waits for the end. False if the server refused a PUT, which has then been told.
  bool Finish();

  // The last number that the server called stored.
  uint32_t stored() const { return stored_.load(std::memory_order_relaxed); }

  // What the cell has at a server. False if there is no answer or no such cell, which has then been
  // told.
  bool Ask(PipeClient* server, uint32_t* number) const;

 private:
  void Run();
  bool Store(PipeClient* server, uint32_t number, bool* gone);

  const char* pipe_ = nullptr;
  std::string cell_;
  std::atomic<uint32_t> stored_{0};  // relaxed: it orders nothing
  bool done_ = false;                // written by the thread before it ends
  HostThread thread_;                // last: it uses the others until it has ended
};

}  // namespace cellhost

#endif
