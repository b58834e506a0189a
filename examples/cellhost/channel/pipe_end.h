// One end of the control pipe; sends and receives whole messages of protocol.h.
//
// Both ends peek into the pipe before they read, and read only bytes that have arrived:
//
// - The library opens the client's end in overlapped mode, but KivSdPipeRead passes no overlapped
//   record. The system documents that such a read may report its completion wrongly. This concerns
//   only a pending read, and a read of bytes that have arrived is never pending. A write that fits
//   into the pipe's buffer is not pending either, and a request always fits.
// - The server's end is synchronous, so a read could block. A blocked read cannot be cancelled:
//   every other call on the handle, even disconnecting or closing it, would wait for the read.
//   A silent client would then keep the server from ending.
#ifndef CELLHOST_CHANNEL_PIPE_END_H
#define CELLHOST_CHANNEL_PIPE_END_H

#include <stdint.h>

#include <atomic>
#include <string_view>

#include "channel/protocol.h"
#include "host/host_memory.h"
#include "host/waiting.h"
#include "kivsdu/api.h"

namespace cellhost {

// What ends the wait for a message.
struct Patience {
  const TimeLimit* limit;         // null: no limit
  const std::atomic<bool>* stop;  // true ends the wait; may be null
};

enum class Received {
  kMessage,
  kGone,      // the other end has closed the pipe, or its process has ended
  kTimedOut,  // the limit has passed
  kStopped,   // `stop` became true before a message arrived
  kTooLong,   // the message is longer than this end accepts; it is still in the pipe
  kNoMemory,  // no memory for the message; reported
};

// One thread at a time.
class PipeEnd {
 public:
  // longestBytes: maximum length of a received message.
  explicit PipeEnd(uint32_t longestBytes);
  PipeEnd(const PipeEnd&) = delete;
  PipeEnd& operator=(const PipeEnd&) = delete;
  ~PipeEnd();

  // Sends a message; waits while the pipe's buffer is full. Returns false if the other end is gone,
  // or without memory.
  bool Send(std::string_view text);

  // Returns without waiting: kMessage if a part of a message has arrived, kTimedOut if nothing has,
  // or kGone.
  Received Glance();

  // Waits for a message.
  //
  //   text  receives the message; valid until the next call
  Received Receive(const Patience& patience, std::string_view* text);

  // Waits until the other end has closed the pipe, and discards its messages. Returns whether it
  // has closed the pipe.
  bool AwaitGone(const Patience& patience);

 protected:
  // Reserves memory for a message of this length, so that sending it cannot lack memory.
  bool MakeRoomToSend(uint32_t lengthBytes) { return sent_.Reserve(kLengthBytes + lengthBytes); }
  bool IsOpen() const;
  void Close();

  KivHandle pipe_ = nullptr;

 private:
  Received Look(const Patience& patience, uint32_t* availableBytes);
  Received ReadAll(const Patience& patience, char* room, uint32_t lengthBytes);

  uint32_t longestBytes_;
  HostArray<char> received_;
  HostArray<char> sent_;
};

}  // namespace cellhost

#endif
