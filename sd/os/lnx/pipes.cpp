// Linux: a pipe is a pair of sockets. Writing to a real pipe without a reader raises a signal, and
// signals belong to the host. A handle is the descriptor plus 1: null is never a valid handle.
#include "os/pipes.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

int DescriptorOf(void* pipe) { return static_cast<int>(reinterpret_cast<intptr_t>(pipe)) - 1; }

void* HandleOf(int descriptor) {
  return reinterpret_cast<void*>(static_cast<intptr_t>(descriptor) + 1);
}

ValueResult<uint32_t> FromCount(ssize_t count) {
  const Result result = FromErrno(count < 0 ? -1 : 0);
  return {result.ok, result.error, result.ok ? static_cast<uint32_t>(count) : 0};
}

}  // namespace

const uint32_t kErrorPipeClosing = EPIPE;

ValueResult<PipeEnds> MakePipe(uint32_t /*bufferBytes*/) {
  int ends[2] = {-1, -1};
  const Result result = FromErrno(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
  return {result.ok, result.error, {HandleOf(ends[0]), HandleOf(ends[1])}};
}

Result ClosePipe(void* pipe) { return FromErrno(close(DescriptorOf(pipe))); }

ValueResult<uint32_t> ReadPipe(void* pipe, void* buffer, uint32_t length) {
  const ssize_t count = recv(DescriptorOf(pipe), buffer, length, 0);
  if (count == 0 && length != 0) return {false, EPIPE, 0};
  return FromCount(count);
}

ValueResult<uint32_t> WritePipe(void* pipe, const void* buffer, uint32_t length) {
  return FromCount(send(DescriptorOf(pipe), buffer, length, MSG_NOSIGNAL));
}

}  // namespace kiv::os
