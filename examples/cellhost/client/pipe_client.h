// A client's end of the control pipe.
#ifndef CELLHOST_CLIENT_PIPE_CLIENT_H
#define CELLHOST_CLIENT_PIPE_CLIENT_H

#include <stdint.h>

#include <string_view>

#include "server/pipe_end.h"

namespace cellhost {

// What the server answered.
struct Reply {
  bool ok;                // OK, not ERROR
  std::string_view text;  // behind that word; good until the next request
};

class PipeClient : public PipeEnd {
 public:
  PipeClient();

  // Opens the pipe, waiting while the server is busy with other clients.
  //
  //   name         of the pipe; not copied
  //   startWaitMs  how long to wait for a server that is not there yet
  //
  // False on failure, which has then been told.
  bool Open(const char* name, uint32_t startWaitMs);

  // Sends a request and waits for the reply. False if there is none, which has then been told.
  bool Ask(std::string_view request, Reply* reply);

  // Takes leave, without which the server counts a lost client.
  void Leave();

 private:
  uint32_t TryOpen();

  const char* name_ = "";
};

// Whether a server takes clients on a pipe, or will within the limit; it need not be there.
bool ServerListens(const char* name, uint32_t limitMs);

// A request of a verb and what follows it, as Ask wants it.
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
