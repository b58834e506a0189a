// Queries on their way from the connections to the workers, first come, first served:
//
//   connection  Put: request into the ring, one to the counting event   then waits for `done`
//   worker      Take: one from the counting event, request off the ring, answers, signals `done`
//
// A critical section guards the ring; no other lock is taken while it is held. A connection has
// one request under way, so that a ring with a place for each connection is never full.
#ifndef CELLHOST_REQUEST_RING_H
#define CELLHOST_REQUEST_RING_H

#include <stdint.h>

#include <string_view>

#include "host_memory.h"
#include "kivsdu/api.h"
#include "kivsdu/mutex.h"

namespace cellhost {

constexpr uint32_t kConnections = 8;

// A connection's request, which belongs to the worker between Put and the signal.
class Request {
 public:
  Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request();

  bool Create();
  void SignalDone();
  bool AwaitDone();

  std::string_view query;  // as the client wrote it
  HostArray<char> reply;   // empty if there was no memory for it

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
  KivSdCritSec lock_ = {};
  bool hasLock_ = false;
  KivHandle waiting_ = nullptr;  // counting event: requests in the ring and workers to end
  Request* ring_[kConnections] = {};
  uint32_t first_ = 0;  // index of the oldest request
  uint32_t count_ = 0;
};

}  // namespace cellhost

#endif
