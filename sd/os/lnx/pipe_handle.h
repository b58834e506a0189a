// The handle of a pipe's end, of both kinds of pipes.
#ifndef KIV_OS_LNX_PIPE_HANDLE_H
#define KIV_OS_LNX_PIPE_HANDLE_H

#include "os/lnx/handle_use.h"
#include "os/named_pipes.h"
#include "os/pipes.h"

namespace kiv::os {

struct NamedPipe;

struct PipeHandle {
  static constexpr Kind kKind = Kind::kPipe;
  void End();

  ObjectWord word;
  NamedPipe* named;  // null for an end of an anonymous pipe
  int descriptor;    // of an anonymous pipe's end
  bool canRead;
  bool canWrite;
};
using PipeUse = HandleUse<PipeHandle>;

// Makes a handle. Null if memory or numbers ran out; the caller keeps what the handle would hold.
void* MakePipeHandle(NamedPipe* named, int descriptor, bool canRead, bool canWrite);

}  // namespace kiv::os

#endif
