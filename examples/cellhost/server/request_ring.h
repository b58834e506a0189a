// The queue of requests from connections to workers, first come, first served:
//
//   connection  Put: adds the request to the ring, sets the counting event; then waits for `done`
//   worker      Take: waits for the counting event, takes the oldest request; answers it; signals
//               `done`
//
// A connection has one request under way. The ring has a slot for each connection and is therefore
// never full. No thread waits while it holds the ring's lock.
#ifndef CELLHOST_SERVER_REQUEST_RING_H
#define CELLHOST_SERVER_REQUEST_RING_H

#include <stdint.h>

#include <string_view>

#include "channel/protocol.h"
#include "host/host_memory.h"
#include "kivsdu/api.h"
#include "server/ring_slots.h"

namespace cellhost {

enum class RequestKind {
  kRead,    // a query; see query.h
  kWrite,   // a PUT; see put_order.h
  kMemory,  // a HOG; see hog.h
};

// A connection's request. It belongs to the worker between Put and SignalDone.
class Request {
 public:
  Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request();

  bool Create();  // also reserves memory for a short reply; see kShortReplyBytes
  void SignalDone();
  bool AwaitDone();

  RequestKind kind = RequestKind::kRead;
  std::string_view text;              // the query, order or command, as the client wrote it
  HostArray<char> reply;              // empty if memory for it was lacking
  FinalCode code = FinalCode::kDone;  // valid if the reply is not empty

 private:
  KivHandle done_ = nullptr;  // standard event
};

class RequestRing {
 public:
  RequestRing() = default;
  RequestRing(const RequestRing&) = delete;
  RequestRing& operator=(const RequestRing&) = delete;
  ~RequestRing();

  // Call this first. Returns false on failure, after reporting it.
  bool Create();

  // Passes a request to the next free worker. Any thread; at most kConnections requests at once.
  bool Put(Request* request);

  // Waits for a request. Returns null if the calling worker must end. Any thread.
  Request* Take();

  // Wakes one worker without a request, which makes it end. Call it after the last Put.
  void EndOne();

 private:
  KivHandle waiting_ = nullptr;  // counting event: requests in the ring plus workers to end
  RingSlots places_;
};

}  // namespace cellhost

#endif
