// The server's end of one client's chunk. Reserves a chunk when the client asks for one. When the
// client has gone, even if it was killed, resets the chunk and frees it for the next client.
#ifndef CELLHOST_SERVER_CHUNK_SERVICE_H
#define CELLHOST_SERVER_CHUNK_SERVICE_H

#include <string_view>

#include "channel/chunk_channel.h"
#include "channel/protocol.h"
#include "server/segment_server.h"

namespace cellhost {

enum class Taken { kOne, kNone, kFailed };  // kNone: all are taken; kFailed was reported

// Belongs to one connection. One thread at a time.
class ChunkService {
 public:
  // Reserves and resets a chunk of the segment. If the client has a chunk, only resets that one: a
  // client that has lost track asks again.
  //
  //   segment  not copied
  Taken Take(SegmentServer* segment);

  // Whether the chunk can carry requests. A broken chunk stays reserved until the client asks again
  // or leaves, because until then the client may write into it.
  bool serves() const { return taken() && !broken_; }
  bool taken() const { return chunk_ != KIV_CHUNK_NONE; }
  int32_t chunk() const { return chunk_; }

  // Waits for a request, for one time-out of the segment; see ChunkChannel::ReceiveRequest. Returns
  // kDone, kNothing, kNonsense or kBroken.
  Carried Await(std::string_view* request);

  // Sends an answer. A failure leaves the chunk broken.
  void Answer(std::string_view text, FinalCode code, ChunkWatch* watch);

  // Resets the chunk, if there is one, and returns it to the segment. The client must not use it
  // any more.
  void GiveBack();

 private:
  Carried Note(Carried carried);

  SegmentServer* segment_ = nullptr;
  int32_t chunk_ = KIV_CHUNK_NONE;
  ChunkChannel channel_;
  bool broken_ = false;
};

}  // namespace cellhost

#endif
