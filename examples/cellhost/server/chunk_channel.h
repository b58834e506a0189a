// One end of a chunk of a shared memory segment, which carries requests one way and answers the
// other; a transport of the messages that protocol.h lists.
//
//   request  client to server   one data message of a half: a text and a zero byte
//   answer   server to client   data messages, all but the last full: the text's length, 32 bits
//                               with the lowest byte first, and so much text; then a code message,
//                               the final code
//
// A half belongs to one end at a time, and its two semaphores say to which:
//
//   full empty
//     0    1    to nobody: as in the beginning
//     0    0    to the writer, which fills it, or to the reader, which empties it
//     1    0    to the reader, which has not looked yet
//     1    1    to both, by the word of an end that keeps no rule
//
// An end that is killed leaves its chunk in any of them; Reset makes the first of each, and touches
// no other chunk. What lies in the halves is left there: it is read by nobody any more.
//
// Semaphores of a segment are waited for until its time-out at most; nothing has been moved then,
// so that the wait goes on if the other end is there still.
#ifndef CELLHOST_SERVER_CHUNK_CHANNEL_H
#define CELLHOST_SERVER_CHUNK_CHANNEL_H

#include <stdint.h>

#include <string_view>

#include "host/host_memory.h"
#include "kivsdu/segment.h"

namespace cellhost {

// A request with its zero byte fits a half.
constexpr uint32_t kChunkRequestBytesMax = KIV_SEGMENT_PAYLOAD_BYTES - 1;

// Whoever waits for the other end is asked, each time the segment's time-out has passed, whether
// the wait is to go on.
class ChunkWatch {
 public:
  virtual bool KeepsWaiting() = 0;

 protected:
  ~ChunkWatch() = default;
};

enum class Carried {
  kDone,
  kNothing,   // nothing came
  kNonsense,  // what came is nothing that the other end may say; it has been taken away
  kNoMemory,  // which has been told; the channel is broken
  kBroken,    // the other end did not do its part: the chunk is good for nothing until Reset
};

// One thread at a time, and the only one of its process that uses the chunk.
class ChunkChannel {
 public:
  // Takes up a chunk as Reset leaves it.
  void Use(KivSharedMemSeg* segment, int32_t chunk);

  // The client's part.
  //
  //   text    of the request, up to kChunkRequestBytesMax without a zero byte
  //   answer  receives the text
  //   code    receives the final code
  Carried SendRequest(std::string_view text, ChunkWatch* watch);
  Carried ReceiveAnswer(ChunkWatch* watch, HostArray<char>* answer, uint32_t* code);

  // The server's part. ReceiveRequest waits until the time-out alone.
  //
  //   text  receives the request, which is good until the next one
  Carried ReceiveRequest(std::string_view* text);
  Carried SendAnswer(std::string_view text, uint32_t code, ChunkWatch* watch);

  // Makes both halves empty and forgets every transfer. While the other end does not touch the
  // chunk: its process has ended, it has left, or it waits to be told. False if a semaphore cannot
  // be had, which has then been told.
  bool Reset();

 private:
  Carried Write(const char* bytes, uint32_t lengthBytes, bool handOver, ChunkWatch* watch);
  Carried WriteCode(uint32_t code, ChunkWatch* watch);
  Carried Read(char* room, uint32_t lengthBytes, ChunkWatch* watch);
  Carried ReadCode(uint32_t* code, ChunkWatch* watch);
  Carried TakeAway();
  bool ResetHalf(uint16_t full);

  KivSharedMemSeg* segment_ = nullptr;
  int32_t chunk_ = KIV_CHUNK_NONE;
  char request_[KIV_SEGMENT_HALF_BYTES + 1];  // a byte more, which stays 0
};

}  // namespace cellhost

#endif
