// One end of the control pipe, which sends and receives whole messages; see protocol.h.
//
// Either end looks into the pipe before it reads, and reads only what is there:
//
// - The client's end is always opened in overlapped mode, while KivSdPipeRead hands the system
//   no overlapped record. The system documents that such a read may report its completion
//   wrongly. It does so while it is pending; a read of bytes that are there never is. A write
//   that fits into the pipe's buffer is not pending either, and a request always fits.
// - The server's end is synchronous, and a read could wait in it. But such a read cannot be
//   called off: every other call on the handle, disconnecting and closing it included, would
//   wait for it, and a client that says nothing would keep the server from ending.
#ifndef CELLHOST_SERVER_PIPE_END_H
#define CELLHOST_SERVER_PIPE_END_H

#include <stdint.h>

#include <atomic>
#include <string_view>

#include "host/host_memory.h"
#include "host/waiting.h"
#include "kivsdu/api.h"
#include "server/protocol.h"

namespace cellhost {

// What a receive waits for besides a message.
struct Patience {
  const TimeLimit* limit;         // null: as long as it takes
  const std::atomic<bool>* stop;  // ends the wait when it is true; null if nothing does
};

enum class Received {
  kMessage,
  kGone,      // the other end has closed the pipe, or was ended
  kTimedOut,  // the limit has passed
  kStopped,   // nothing had come when it was to stop
  kTooLong,   // the message is longer than this end takes; it is still in the pipe
  kNoMemory,  // which has been told
};

// One thread at a time.
class PipeEnd {
 public:
  // longestBytes: of a message received.
  explicit PipeEnd(uint32_t longestBytes);
  PipeEnd(const PipeEnd&) = delete;
  PipeEnd& operator=(const PipeEnd&) = delete;
  ~PipeEnd();

  // Sends a message, waiting while the pipe's buffer is full. False if the other end is gone, or
  // when there is no memory.
  bool Send(std::string_view text);

  // Whether something of a message has come, without a wait: kMessage, kTimedOut or kGone.
  Received Glance();

  // Waits for a message.
  //
  //   text  receives it; good until the next one
  Received Receive(const Patience& patience, std::string_view* text);

  // Waits until the other end has closed the pipe, and throws away what it still says. Whether it
  // has.
  bool AwaitGone(const Patience& patience);

 protected:
  // Makes room for sending a message of this length, which then needs no memory.
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
