// A connection: an instance of the control pipe and the thread that serves its clients, one
// after the other. Queries and PUTs go to the workers; the thread answers everything else itself.
//
// A client that asks for a chunk of the segment is served over that from then on. The thread waits
// for its requests there, and looks into the pipe whenever the segment's time-out has passed.
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
  // Makes the instance and starts its thread.
  //
  //   service  not copied
  //   first    whether no other connection has been made
  //
  // False on failure, which has then been told.
  bool Start(Service* service, const char* pipe, bool first);

  // After Service::Stop: whether the thread has ended within the limit. A thread that waits for
  // a client has to be woken too (WakeAccept).
  bool EndsWithin(int32_t limitMs) { return thread_.EndsWithin(limitMs); }

 private:
  enum class Next {
    kGoOn,
    kLeft,  // with BYE
    kLost,  // without
    kCut,   // it is the server that ends it
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
  bool overChunk_ = false;  // the request that is carried out came there
  Request request_;
  HostThread thread_;  // last: it uses the others until it has ended
};

}  // namespace cellhost

#endif
