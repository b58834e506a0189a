// Messages on a connection that keeps their boundaries. A message that is longer than the reader's
// buffer is taken as a whole, and its rest kept for the next reads.
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "os/lnx/named_pipe.h"

namespace kiv::os {
namespace {

struct Received {
  uint32_t error;   // 0 if there was a message
  uint32_t length;  // of the whole message, even if the buffer is shorter
};

// An empty message and the end of a connection both have the length 0. Only a message has a sender.
Received Receive(int connection, void* buffer, size_t sizeBytes, int flags) {
  iovec piece = {buffer, sizeBytes};
  alignas(cmsghdr) unsigned char sender[CMSG_SPACE(sizeof(ucred))];
  msghdr message = {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = sender;
  // A peer that closes before it has read everything leaves ECONNRESET, which the kernel reports
  // once and before the messages that the peer sent. It may also report the end before the last
  // message: it looks for messages first and for the end afterwards, and the peer may send and close
  // in between. The second report of the end is true.
  int ends = 0;
  while (ends < 2) {
    message.msg_controllen = sizeof sender;
    const ssize_t length =
        recvmsg(connection, &message, flags | MSG_TRUNC | MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    const bool isAgain = length == -1 && (errno == EINTR || errno == ECONNRESET);
    const bool isEnd = length == 0 && message.msg_controllen == 0;
    if (length == -1 && !isAgain) return {static_cast<uint32_t>(errno), 0};
    if (length != -1 && !isEnd) return {0, static_cast<uint32_t>(length)};
    if (isEnd) ++ends;
  }
  return {EPIPE, 0};
}

uint32_t RestLength(const NamedPipe* pipe) { return pipe->restBytes - pipe->restAt; }

// Reads on in a message whose beginning was read.
ValueResult<uint32_t> TakeRest(NamedPipe* pipe, void* buffer, uint32_t length) {
  const uint32_t count = std::min(length, RestLength(pipe));
  std::memcpy(buffer, pipe->rest + pipe->restAt, count);
  pipe->restAt += count;
  if (RestLength(pipe) != 0) return {false, EMSGSIZE, count};
  ForgetRest(pipe);
  return {true, 0, count};
}

ValueResult<uint32_t> TakeLongMessage(NamedPipe* pipe, void* buffer, uint32_t length,
                                      uint32_t messageBytes) {
  void* memory = std::malloc(messageBytes);
  if (memory == nullptr) return {false, ENOMEM, 0};
  const Received taken = Receive(pipe->connection, memory, messageBytes, 0);
  if (taken.error != 0) {
    std::free(memory);
    return {false, taken.error, 0};
  }
  pipe->rest = static_cast<unsigned char*>(memory);
  pipe->restBytes = messageBytes;
  pipe->restAt = 0;
  return TakeRest(pipe, buffer, length);
}

}  // namespace

void ForgetRest(NamedPipe* pipe) {
  std::free(pipe->rest);
  pipe->rest = nullptr;
  pipe->restBytes = 0;
  pipe->restAt = 0;
}

ValueResult<uint32_t> TakeMessage(NamedPipe* pipe, void* buffer, uint32_t length) {
  if (pipe->restBytes != 0) return TakeRest(pipe, buffer, length);
  const Received next = Receive(pipe->connection, nullptr, 0, MSG_PEEK);
  if (next.error != 0) return {false, next.error, 0};
  if (next.length > length) return TakeLongMessage(pipe, buffer, length, next.length);
  const Received taken = Receive(pipe->connection, buffer, length, 0);
  return {taken.error == 0, taken.error, taken.length};
}

ValueResult<PipeContent> LookAtMessage(NamedPipe* pipe, void* buffer, uint32_t sizeBytes) {
  Received next = {0, RestLength(pipe)};
  if (pipe->restBytes == 0) {
    next = Receive(pipe->connection, buffer, sizeBytes, MSG_PEEK);
  } else if (sizeBytes != 0) {
    std::memcpy(buffer, pipe->rest + pipe->restAt, std::min(sizeBytes, next.length));
  }
  if (next.error == EAGAIN) return {true, 0, {0, 0, 0}};
  if (next.error != 0) return {false, next.error, {}};
  // After the look at the message, so that its bytes are among those counted.
  int queued = 0;
  if (ioctl(pipe->connection, FIONREAD, &queued) == -1) {
    return {false, static_cast<uint32_t>(errno), {}};
  }
  const uint32_t available = RestLength(pipe) + static_cast<uint32_t>(queued);
  const uint32_t count = std::min(sizeBytes, next.length);
  return {true, 0, {count, available, next.length - count}};
}

}  // namespace kiv::os
