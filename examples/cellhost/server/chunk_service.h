// A client's chunk, as the server has it: taken when the client asks for one, brought back to what
// it was when the client has gone, however it went, and only then for the next.
#ifndef CELLHOST_SERVER_CHUNK_SERVICE_H
#define CELLHOST_SERVER_CHUNK_SERVICE_H

#include <string_view>

#include "server/chunk_channel.h"
#include "server/protocol.h"
#include "server/segment_server.h"

namespace cellhost {

enum class Taken { kOne, kNone, kFailed };  // kFailed has been told

// One thread at a time; of one connection.
class ChunkService {
 public:
  // Takes a chunk of the segment, or makes the one that the client has as it was in the beginning:
  // the client asks for that when it lost track.
  //
  //   segment  not copied
  Taken Take(SegmentServer* segment);

  // Whether requests may come over the chunk. One that is broken waits for the client to ask for it
  // anew or to leave: until then the client may touch it, and no other may have it.
  bool serves() const { return taken() && !broken_; }
  bool taken() const { return chunk_ != KIV_CHUNK_NONE; }
  int32_t chunk() const { return chunk_; }

  // Waits for a request until the segment's time-out; see ChunkChannel::ReceiveRequest. kDone,
  // kNothing, kNonsense or kBroken.
  Carried Await(std::string_view* request);

  // Sends an answer; what cannot be sent leaves the chunk broken.
  void Answer(std::string_view text, FinalCode code, ChunkWatch* watch);

  // Gives the chunk back, if there is one. When the client does not touch it any more.
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
