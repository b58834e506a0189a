// The server's end of one instance of the control pipe. It accepts one client after another.
#ifndef CELLHOST_SERVER_PIPE_SERVER_H
#define CELLHOST_SERVER_PIPE_SERVER_H

#include <stdint.h>

#include "channel/pipe_end.h"

namespace cellhost {

enum class Accepted {
  kClient,
  kCameAndWent,  // a client opened and closed the pipe before it was accepted
  kFailed,       // reported
};

class PipeServer : public PipeEnd {
 public:
  PipeServer();

  // Makes the instance, and reserves memory for short replies; see kShortReplyBytes.
  //
  //   name       name of the pipe
  //   instances  total number of instances
  //   first      whether this is the first instance; fails if another program uses the name
  //
  // Returns false on failure, after reporting it.
  bool Create(const char* name, uint32_t instances, bool first);

  // Waits for the next client.
  Accepted Accept();

  // Disconnects the client. Data that the client has not read is lost; AwaitGone gives it time.
  void CutOff();
};

// Opens and closes the pipe, which wakes one thread that waits in Accept, if there is one.
void WakeAccept(const char* name);

}  // namespace cellhost

#endif
