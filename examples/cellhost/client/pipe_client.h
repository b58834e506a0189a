// A client's end of the control pipe.
#ifndef CELLHOST_CLIENT_PIPE_CLIENT_H
#define CELLHOST_CLIENT_PIPE_CLIENT_H

#include <stdint.h>

#include <string_view>

#include "channel/pipe_end.h"

namespace cellhost {

// The server's reply.
struct Reply {
  bool ok;                // true: OK; false: ERROR
  std::string_view text;  // the text behind that word; valid until the next request
};

class PipeClient : public PipeEnd {
 public:
  PipeClient();

  // Opens the pipe; waits while the server is busy with other clients.
  //
  //   name         name of the pipe; not copied
  //   startWaitMs  how long to wait for the server to start
  //
  // Returns false on failure, after reporting it.
  bool Open(const char* name, uint32_t startWaitMs);

  // Sends a request and waits for the reply. Returns false without a reply, after reporting it.
  bool Ask(std::string_view request, Reply* reply);

  // Sends BYE and closes the pipe. Without BYE the server counts a lost client.
  void Leave();

 private:
  uint32_t TryOpen();

  const char* name_ = "";
};

// Returns whether a server accepts clients on a pipe within the limit. If no server has the pipe,
// returns false at once.
bool ServerListens(const char* name, uint32_t limitMs);

// Builds a request from a verb and its argument, for Ask.
class RequestText {
 public:
  RequestText();
  bool Set(std::string_view verb, std::string_view rest);
  std::string_view text() const { return {text_.data(), text_.count()}; }

 private:
  HostArray<char> text_;
};

}  // namespace cellhost

#endif
