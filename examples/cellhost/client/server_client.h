// A client of the server, over the pipe or over shared memory.
#ifndef CELLHOST_CLIENT_SERVER_CLIENT_H
#define CELLHOST_CLIENT_SERVER_CLIENT_H

#include <stdint.h>

#include <string_view>

#include "client/pipe_client.h"
#include "client/segment_client.h"

namespace cellhost {

enum class Road {
  kPipe,          // the control pipe
  kSharedMemory,  // a chunk of the server's segment
};

class ServerClient {
 public:
  // Connects to the server; waits while it is busy with other clients; see PipeClient::Open.
  // Returns false on failure, after reporting it.
  bool Open(Road road, const char* pipe, uint32_t startWaitMs);

  // See PipeClient.
  bool Ask(std::string_view request, Reply* reply);
  void Leave();

 private:
  Road road_ = Road::kPipe;
  PipeClient pipe_;
  SegmentClient segment_;
};

}  // namespace cellhost

#endif
