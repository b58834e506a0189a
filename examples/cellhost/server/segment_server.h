// The server's shared memory segment: five chunks, each for one client at a time.
//
// Which chunks are taken is kept by each process for itself, so that the server alone takes them
// and gives them back; it tells a client the number on the control pipe. That also keeps clients
// away from the lock that guards the taking: none that is killed can leave it taken. The server's
// end is the kind that writes first halves.
#ifndef CELLHOST_SERVER_SEGMENT_SERVER_H
#define CELLHOST_SERVER_SEGMENT_SERVER_H

#include <stdint.h>

#include "kivsdu/segment.h"

namespace cellhost {

// How long the server waits for a client before it looks whether the client is still there, and
// so how long the chunk of one that was killed is not to be had at most.
constexpr uint32_t kSegmentTimeoutMs = 500;

class SegmentServer {
 public:
  SegmentServer() = default;
  SegmentServer(const SegmentServer&) = delete;
  SegmentServer& operator=(const SegmentServer&) = delete;
  ~SegmentServer();

  // Before its other operations. Under a name of its own, so that no semaphore is what clients of
  // an earlier server have left. False on failure, which has then been told.
  bool Create();

  // Takes a chunk. Any thread.
  //
  //   chunk  receives its number, KIV_CHUNK_NONE if all are taken
  //
  // False on failure, which has then been told.
  bool TakeChunk(int32_t* chunk);

  // Gives a chunk back, as it was found: see ChunkChannel::Reset. Any thread.
  void GiveBackChunk(int32_t chunk);

  const char* name() const { return segment_->name; }
  KivSharedMemSeg* segment() const { return segment_; }

 private:
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;  // in the list
};

}  // namespace cellhost

#endif
