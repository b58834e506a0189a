// A connection: an instance of the control pipe and a thread. The thread serves one client after
// another. It passes QUERY, PUT and HOG to the workers and answers all other requests itself.
//
// Once a client has a chunk of the segment, the thread waits for its requests there, and checks the
// pipe after each time-out of the segment.
#ifndef CELLHOST_SERVER_CONNECTION_H
#define CELLHOST_SERVER_CONNECTION_H

#include <stdint.h>

#include <string_view>

#include "host/host_thread.h"
#include "server/chunk_service.h"
#include "server/pipe_server.h"
#include "server/request_ring.h"
#include "server/service.h"

namespace cellhost {

class Connection {
 public:
  // Makes the pipe instance and starts the thread.
  //
  //   service  not copied
  //   first    whether this is the first connection
  //
  // Returns false on failure, after reporting it.
  bool Start(Service* service, const char* pipe, bool first);

  // Call after Service::Stop. Returns whether the thread ends within the limit. A thread that waits
  // for a client must also be woken, by WakeAccept.
  bool EndsWithin(int32_t limitMs) { return thread_.EndsWithin(limitMs); }

 private:
  enum class Next {
    kGoOn,
    kLeft,  // the client left with BYE
    kLost,  // the client left without BYE
    kCut,   // the server ends the connection
  };

  void Run();
  void ServeClient(uint32_t client);
  bool AwaitGone();
  Next ServeRequest(uint32_t client);
  Next ServePipe(uint32_t client);
  Next ServeChunk(uint32_t client);
  Next Obey(uint32_t client, std::string_view message);
  Next ObeyOverChunk(uint32_t client, std::string_view message);
  Next HandOver(RequestKind kind, std::string_view text);
  Next Tell(std::string_view reply);
  Next Tell(std::string_view reply, FinalCode code);
  Next TellOverChunk(std::string_view reply, FinalCode code);
  Next TellChunk(uint32_t client);
  Next TellSegment();
  Next TellStats();
  Next TellBackup(std::string_view seconds);

  Service* service_ = nullptr;
  PipeServer pipe_;
  ChunkService chunk_;
  bool overChunk_ = false;  // the current request came over the chunk
  Request request_;
  HostThread thread_;  // last: the thread uses the other members until it has ended
};

}  // namespace cellhost

#endif
