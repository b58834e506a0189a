// A client's end of the server's segment. The client asks for a chunk on the control pipe, and
// sends its requests over that chunk.
#ifndef CELLHOST_CLIENT_SEGMENT_CLIENT_H
#define CELLHOST_CLIENT_SEGMENT_CLIENT_H

#include <stdint.h>

#include <string_view>

#include "channel/chunk_channel.h"
#include "channel/protocol.h"
#include "client/pipe_client.h"

namespace cellhost {

enum class Given {
  kOne,
  kNone,    // other clients have all chunks; ask again later
  kFailed,  // reported
};

class SegmentClient {
 public:
  SegmentClient();
  SegmentClient(const SegmentClient&) = delete;
  SegmentClient& operator=(const SegmentClient&) = delete;
  ~SegmentClient();

  // Opens the control pipe; see PipeClient::Open.
  bool Open(const char* pipe, uint32_t startWaitMs);

  // Asks for a chunk, once. A client that has a chunk receives the same chunk, reset.
  Given AskForChunk();

  // Asks until a chunk is free or the limit has passed. Returns false on failure, after reporting
  // it.
  bool AwaitChunk(uint32_t limitMs);

  // Sends a request over the chunk and waits for the answer. Returns false without an answer, after
  // reporting it; call AskForChunk before the next request.
  bool Ask(std::string_view request, Reply* reply);

  // Returns the chunk, sends BYE and closes the pipe. Without BYE the server counts a lost client.
  void Leave();

  int32_t chunk() const { return chunk_; }         // KIV_CHUNK_NONE without a chunk
  FinalCode code() const { return code_; }         // final code of the last answer
  KivSharedMemSeg* segment() { return segment_; }  // null without a chunk
  PipeClient* pipe() { return &pipe_; }

 private:
  bool Join(std::string_view name, int32_t chunk);
  void Detach();

  PipeClient pipe_;
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;  // member of list_
  int32_t chunk_ = KIV_CHUNK_NONE;
  ChunkChannel channel_;
  HostArray<char> answer_;
  FinalCode code_ = FinalCode::kDone;
};

}  // namespace cellhost

#endif
