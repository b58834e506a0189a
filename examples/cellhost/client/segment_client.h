// A client's end of the server's segment: a chunk that it asks for on the control pipe, and
// requests over that.
#ifndef CELLHOST_CLIENT_SEGMENT_CLIENT_H
#define CELLHOST_CLIENT_SEGMENT_CLIENT_H

#include <stdint.h>

#include <string_view>

#include "client/pipe_client.h"
#include "server/chunk_channel.h"
#include "server/protocol.h"

namespace cellhost {

enum class Given {
  kOne,
  kNone,    // other clients have them all; the server may be asked again
  kFailed,  // which has been told
};

class SegmentClient {
 public:
  SegmentClient();
  SegmentClient(const SegmentClient&) = delete;
  SegmentClient& operator=(const SegmentClient&) = delete;
  ~SegmentClient();

  // Opens the control pipe; see PipeClient::Open.
  bool Open(const char* pipe, uint32_t startWaitMs);

  // Asks for a chunk, once. A client that has one gets the same as it was in the beginning.
  Given AskForChunk();

  // Asks until there is one or the limit has passed. False on failure, which has then been told.
  bool AwaitChunk(uint32_t limitMs);

  // Sends a request over the chunk and waits for the answer. False if there is none, which has
  // then been told; the chunk is then to be asked for again.
  bool Ask(std::string_view request, Reply* reply);

  // Gives the chunk back and takes leave, without which the server counts a lost client.
  void Leave();

  int32_t chunk() const { return chunk_; }         // KIV_CHUNK_NONE if it has none
  FinalCode code() const { return code_; }         // of the last answer
  KivSharedMemSeg* segment() { return segment_; }  // null without a chunk
  PipeClient* pipe() { return &pipe_; }

 private:
  bool Join(std::string_view name, int32_t chunk);
  void Detach();

  PipeClient pipe_;
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;  // in the list
  int32_t chunk_ = KIV_CHUNK_NONE;
  ChunkChannel channel_;
  HostArray<char> answer_;
  FinalCode code_ = FinalCode::kDone;
};

}  // namespace cellhost

#endif
