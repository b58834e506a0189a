// An instance of the control pipe: the server's end, which takes one client after the other.
#ifndef CELLHOST_SERVER_PIPE_SERVER_H
#define CELLHOST_SERVER_PIPE_SERVER_H

#include <stdint.h>

#include "server/pipe_end.h"

namespace cellhost {

enum class Accepted {
  kClient,
  kCameAndWent,  // a client had opened and closed the pipe before it was accepted
  kFailed,       // which has been told
};

class PipeServer : public PipeEnd {
 public:
  PipeServer();

  // Makes the instance, and room for sending short replies; see kShortReplyBytes.
  //
  //   name       of the pipe
  //   instances  how many there will be
  //   first      whether this is the first; no other program may then have the name
  //
  // False on failure, which has then been told.
  bool Create(const char* name, uint32_t instances, bool first);

  // Waits for the next client.
  Accepted Accept();

  // Cuts the client off. What it has not read yet is lost: AwaitGone gives it time.
  void CutOff();
};

// Opens the pipe and closes it at once, which wakes one thread that waits in Accept, if any does.
void WakeAccept(const char* name);

}  // namespace cellhost

#endif
