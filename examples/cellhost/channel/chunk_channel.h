// One end of a chunk of a shared memory segment. It carries the messages of protocol.h: requests in
// one half of the chunk, answers in the other.
//
//   request  client to server   one data message: a text and a zero byte; fits one half
//   answer   server to client   data messages, all full except the last: the length of the text
//                               (32 bits, lowest byte first) and the text; then a code message
//                               with the final code
//
// Each half belongs to one end at a time. Its two semaphores show the owner, and Reset must cope
// with every state in which a killed or faulty client leaves a half:
//
//   full empty  owner                    a client leaves the half in this state if it
//     0    1    none, as initially       was killed between two transfers
//     0    0    the writer or the        was killed while it wrote its request or read its answer
//               reader, while it works
//     1    0    the reader, which has    was killed before it looked at its answer, or before the
//               not looked yet           server looked at its request
//     1    1    both, against the rules  released a semaphore that it had not acquired
//
// Reset sets both halves to the first state and touches no other chunk. It leaves the bytes in the
// halves, because nobody reads them afterwards.
//
// A wait for a semaphore of the segment ends after the segment's time-out. No byte has then been
// moved, and the wait can be repeated while the other end is alive.
#ifndef CELLHOST_CHANNEL_CHUNK_CHANNEL_H
#define CELLHOST_CHANNEL_CHUNK_CHANNEL_H

#include <stdint.h>

#include <string_view>

#include "host/host_memory.h"
#include "kivsdu/segment.h"

namespace cellhost {

// A request with its zero byte fits a half.
constexpr uint32_t kChunkRequestBytesMax = KIV_SEGMENT_PAYLOAD_BYTES - 1;

// Decides after each time-out of the segment whether to keep waiting for the other end.
class ChunkWatch {
 public:
  virtual bool KeepsWaiting() = 0;

 protected:
  ~ChunkWatch() = default;
};

enum class Carried {
  kDone,
  kNothing,   // nothing arrived
  kNonsense,  // the message breaks the protocol; it was discarded
  kNoMemory,  // reported; the channel is then broken, too
  kBroken,    // the other end did not do its part; the chunk is unusable until Reset
};

// One thread at a time; nothing else in the process may use the chunk.
class ChunkChannel {
 public:
  // Attaches to a chunk in the state in which Reset leaves it.
  void Use(KivSharedMemSeg* segment, int32_t chunk);

  // The client's part.
  //
  //   text    the request, up to kChunkRequestBytesMax bytes, without a zero byte
  //   answer  receives the text
  //   code    receives the final code
  Carried SendRequest(std::string_view text, ChunkWatch* watch);
  Carried ReceiveAnswer(ChunkWatch* watch, HostArray<char>* answer, uint32_t* code);

  // The server's part. ReceiveRequest waits for one time-out of the segment.
  //
  //   text  receives the request; valid until the next request
  Carried ReceiveRequest(std::string_view* text);
  Carried SendAnswer(std::string_view text, uint32_t code, ChunkWatch* watch);

  // Empties both halves and forgets all transfers. The other end must not use the chunk meanwhile:
  // its process has ended, it has left, or it waits for a reply on the pipe. Returns false if a
  // semaphore operation fails, after reporting it.
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
  char request_[KIV_SEGMENT_HALF_BYTES + 1];  // the last byte always stays 0
};

}  // namespace cellhost

#endif
