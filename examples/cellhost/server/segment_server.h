// The server's shared memory segment: five chunks, each for one client at a time.
//
// The library records in each process separately which chunks are taken. Therefore only the server
// takes and returns chunks, and sends the client the number over the control pipe. Clients also
// never hold the lock that guards the chunks, so that a killed client cannot leave it locked.
//
// The server's end has the kind that writes the first halves. A faulty client can garble the chunks
// of other clients, because all map one area; it cannot harm the server.
#ifndef CELLHOST_SERVER_SEGMENT_SERVER_H
#define CELLHOST_SERVER_SEGMENT_SERVER_H

#include <stdint.h>

#include "kivsdu/segment.h"

namespace cellhost {

// How long the server waits for a client before it checks whether the client is still there. This
// is also the longest time until the chunk of a killed client is free again.
constexpr uint32_t kSegmentTimeoutMs = 500;

class SegmentServer {
 public:
  SegmentServer() = default;
  SegmentServer(const SegmentServer&) = delete;
  SegmentServer& operator=(const SegmentServer&) = delete;
  ~SegmentServer();

  // Call this first. Uses a new name for each server, so that it gets no semaphores that clients of
  // an earlier server have left behind. Returns false on failure, after reporting it.
  bool Create();

  // Takes a chunk. Any thread.
  //
  //   chunk  receives the number of the chunk, or KIV_CHUNK_NONE if all are taken
  //
  // Returns false on failure, after reporting it.
  bool TakeChunk(int32_t* chunk);

  // Returns a chunk, which must have been reset; see ChunkChannel::Reset. Any thread.
  void GiveBackChunk(int32_t chunk);

  const char* name() const { return segment_->name; }
  KivSharedMemSeg* segment() const { return segment_; }

 private:
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;  // member of list_
};

}  // namespace cellhost

#endif
