// Requests on their way from the connections to the workers, first come, first served:
//
//   connection  Put: request into the ring, one to the counting event   then waits for `done`
//   worker      Take: one from the counting event, request off the ring, answers, signals `done`
//
// A connection has one request under way, so that a ring with a place for each connection is never
// full. No lock is held while anyone waits.
#ifndef CELLHOST_SERVER_REQUEST_RING_H
#define CELLHOST_SERVER_REQUEST_RING_H

#include <stdint.h>

#include <string_view>

#include "host/host_memory.h"
#include "kivsdu/api.h"
#include "server/protocol.h"
#include "server/ring_slots.h"

namespace cellhost {

enum class RequestKind {
  kRead,    // a query; see query.h
  kWrite,   // a PUT; see put_order.h
  kMemory,  // a HOG; see hog.h
};

// A connection's request, which belongs to the worker between Put and the signal.
class Request {
 public:
  Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request();

  bool Create();  // also makes room for a short reply; see kShortReplyBytes
  void SignalDone();
  bool AwaitDone();

  RequestKind kind = RequestKind::kRead;
  std::string_view text;              // the query or the order, as the client wrote it
  HostArray<char> reply;              // empty if there was no memory for it
  FinalCode code = FinalCode::kDone;  // of a reply that is not empty

 private:
  KivHandle done_ = nullptr;  // standard event
};

class RequestRing {
 public:
  RequestRing() = default;
  RequestRing(const RequestRing&) = delete;
  RequestRing& operator=(const RequestRing&) = delete;
  ~RequestRing();

  // Before its other operations. False on failure, which has then been told.
  bool Create();

  // Hands a request to the next worker that has time. Any thread; at most kConnections requests
  // at once.
  bool Put(Request* request);

  // Waits for a request. Null when a worker is to end. Any thread.
  Request* Take();

  // Wakes one worker without a request, so that it ends. After the last Put.
  void EndOne();

 private:
  KivHandle waiting_ = nullptr;  // counting event: requests in the ring and workers to end
  RingSlots places_;
};

}  // namespace cellhost

#endif
