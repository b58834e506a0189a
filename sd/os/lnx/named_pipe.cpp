#include "os/lnx/named_pipe.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "os/lnx/descriptor_wait.h"
#include "os/lnx/posix.h"
#include "os/pipes.h"

namespace kiv::os {

const uint32_t kErrorPipeConnected = 535;

namespace {

constexpr int kNoDescriptor = -1;
constexpr Deadline kNoDeadline = {{}, true};
constexpr short kHangUp = POLLHUP | POLLRDHUP;

class Hold {
 public:
  explicit Hold(NamedPipe* pipe) : pipe_(pipe) { pthread_mutex_lock(&pipe->mutex); }
  ~Hold() { pthread_mutex_unlock(&pipe_->mutex); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  NamedPipe* const pipe_;
};

// Holds the mutex at the start of an operation. Waits until no thread closes a descriptor: that
// thread gives the mutex back while it waits, and would wait for the new operation too.
class HoldToBegin : public Hold {
 public:
  explicit HoldToBegin(NamedPipe* pipe) : Hold(pipe) {
    while (pipe->isClosing) pthread_cond_wait(&pipe->change, &pipe->mutex);
  }
};

// ---- Using descriptors without the mutex ----

void BeginUse(NamedPipe* pipe) { ++pipe->users; }

void EndUse(NamedPipe* pipe) {
  const Hold hold(pipe);
  if (--pipe->users == 0) pthread_cond_broadcast(&pipe->change);
}

// Closes a descriptor when its last user has left. The shutdown ends waits on it. The caller holds
// the mutex, and calls EndClosing when other operations may begin again.
void CloseWhenUnused(NamedPipe* pipe, int* descriptor) {
  const int closing = *descriptor;
  *descriptor = kNoDescriptor;
  pipe->isClosing = true;
  shutdown(closing, SHUT_RDWR);
  while (pipe->users != 0) pthread_cond_wait(&pipe->change, &pipe->mutex);
  close(closing);
}

void EndClosing(NamedPipe* pipe) {
  pipe->isClosing = false;
  pthread_cond_broadcast(&pipe->change);
}

void CloseIfOpen(int descriptor) {
  if (descriptor != kNoDescriptor) close(descriptor);
}

// ---- The server's connection ----

bool IsClientOfThisUser(int connection) {
  ucred peer = {};
  socklen_t length = sizeof peer;
  return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
         (peer.uid == geteuid() || peer.uid == 0);
}

bool HasHungUp(int connection) {
  const int events = PollUntil(connection, kHangUp, DeadlineAfter(0));
  return events > 0 && (events & kHangUp) != 0;
}

// The client removes the socket's file, unless it is killed before.
void RemoveOwnSocket(const NamedPipe* pipe) {
  const PipeFolder folder;
  if (folder.result().ok) RemoveSocket(folder, pipe->name, pipe->instance.number);
}

// Takes the client that has connected; EAGAIN if no client has. The caller holds the mutex.
Result TakeClient(NamedPipe* pipe) {
  int client;
  do {
    client = accept4(pipe->listener, nullptr, nullptr, SOCK_CLOEXEC);
  } while (client == -1 && errno == EINTR);
  if (client == -1) return FromErrno(-1);
  if (!IsClientOfThisUser(client)) {
    close(client);
    return {false, EAGAIN};
  }
  PrepareConnection(client, pipe->isMessage, pipe->writeBytes);
  pipe->connection = client;
  CloseWhenUnused(pipe, &pipe->listener);
  RemoveOwnSocket(pipe);
  EndClosing(pipe);
  return {true, 0};
}

// Makes sure that there is a connection. The caller holds the mutex.
Result RequireConnection(NamedPipe* pipe) {
  if (pipe->connection != kNoDescriptor) return {true, 0};
  if (pipe->listener != kNoDescriptor && TakeClient(pipe).ok) return {true, 0};
  return {false, ENOTCONN};
}

Result StartListening(NamedPipe* pipe) {
  const PipeFolder folder;
  if (!folder.result().ok) return folder.result();
  const ValueResult<int> made =
      ListenAt(folder, pipe->name, pipe->instance.number, pipe->isMessage);
  if (made.ok) pipe->listener = made.value;
  return {made.ok, made.error};
}

Result OutcomeOfEarlierClient(const NamedPipe* pipe) {
  return {false, HasHungUp(pipe->connection) ? kErrorPipeClosing : kErrorPipeConnected};
}

// Sleeps until a client has connected or another thread has changed the pipe.
void AwaitClient(NamedPipe* pipe, int listener) {
  static_cast<void>(PollUntil(listener, POLLIN, kNoDeadline));
  EndUse(pipe);
}

// One look at the pipe: `mustWait` if there was no client yet.
struct Look {
  Result result;
  bool mustWait;
  int listener;
};

Look LookForClient(NamedPipe* pipe, bool hasWaited) {
  const HoldToBegin hold(pipe);
  if (pipe->connection != kNoDescriptor) {
    return {hasWaited ? Result{true, 0} : OutcomeOfEarlierClient(pipe), false, kNoDescriptor};
  }
  if (pipe->listener == kNoDescriptor) {
    const Result started = StartListening(pipe);
    if (!started.ok) return {started, false, kNoDescriptor};
  }
  const Result taken = TakeClient(pipe);
  if (taken.ok) {
    return {hasWaited ? Result{true, 0} : OutcomeOfEarlierClient(pipe), false, kNoDescriptor};
  }
  if (taken.error != EAGAIN || pipe->isNoWait) return {taken, false, kNoDescriptor};
  BeginUse(pipe);
  return {taken, true, pipe->listener};
}

// ---- Transfers ----

// A connection that the thread may use until the end of the scope.
class ConnectionUse {
 public:
  explicit ConnectionUse(NamedPipe* pipe) : pipe_(pipe) {
    const HoldToBegin hold(pipe);
    result_ = RequireConnection(pipe);
    if (!result_.ok) return;
    descriptor_ = pipe->connection;
    BeginUse(pipe);
  }
  ~ConnectionUse() {
    if (result_.ok) EndUse(pipe_);
  }
  ConnectionUse(const ConnectionUse&) = delete;
  ConnectionUse& operator=(const ConnectionUse&) = delete;

  const Result& result() const { return result_; }
  int descriptor() const { return descriptor_; }

 private:
  NamedPipe* const pipe_;
  Result result_;
  int descriptor_ = kNoDescriptor;
};

// A connection that the other end has reset is as broken as one that it has closed.
uint32_t TransferError() {
  return errno == ECONNRESET ? uint32_t{EPIPE} : static_cast<uint32_t>(errno);
}

// Without waiting, an empty pipe is an error and a full one takes nothing, as on Windows.
uint32_t ReadError(uint32_t error) { return error == EAGAIN ? kErrorPipeClosing : error; }

int TransferFlags(const NamedPipe* pipe) { return pipe->isNoWait ? MSG_DONTWAIT : 0; }

ValueResult<uint32_t> ReadStream(const NamedPipe* pipe, int connection, void* buffer,
                                 uint32_t length) {
  ssize_t count;
  do {
    count = recv(connection, buffer, length, TransferFlags(pipe));
  } while (count == -1 && errno == EINTR);
  if (count == -1) return {false, ReadError(TransferError()), 0};
  if (count == 0 && length != 0) return {false, EPIPE, 0};
  return {true, 0, static_cast<uint32_t>(count)};
}

ValueResult<uint32_t> TakeMessageLocked(NamedPipe* pipe, void* buffer, uint32_t length) {
  const Hold hold(pipe);
  if (pipe->connection == kNoDescriptor) return {false, ENOTCONN, 0};  // disconnected meanwhile
  return TakeMessage(pipe, buffer, length);
}

ValueResult<uint32_t> ReadMessage(NamedPipe* pipe, int connection, void* buffer, uint32_t length) {
  while (true) {
    const ValueResult<uint32_t> taken = TakeMessageLocked(pipe, buffer, length);
    if (taken.ok || taken.error != EAGAIN) return taken;
    if (pipe->isNoWait) return {false, kErrorPipeClosing, 0};
    static_cast<void>(PollUntil(connection, POLLIN, kNoDeadline));
  }
}

// Reads the bytes of as many messages as there are, but waits only for the first of them.
ValueResult<uint32_t> ReadBytesOfMessages(NamedPipe* pipe, int connection, void* buffer,
                                          uint32_t length) {
  ValueResult<uint32_t> first;
  do {
    first = ReadMessage(pipe, connection, buffer, length);
  } while (first.ok && first.value == 0 && length != 0);  // an empty message has no bytes
  if (!first.ok && first.error != EMSGSIZE) return first;
  uint32_t count = first.value;
  while (count < length) {
    const ValueResult<uint32_t> next =
        TakeMessageLocked(pipe, static_cast<unsigned char*>(buffer) + count, length - count);
    if (!next.ok && next.error != EMSGSIZE) break;
    count += next.value;
  }
  return {true, 0, count};
}

ValueResult<uint32_t> SendAll(const NamedPipe* pipe, int connection, const void* buffer,
                              uint32_t length) {
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  uint32_t done = 0;
  do {
    const ssize_t sent =
        send(connection, bytes + done, length - done, TransferFlags(pipe) | MSG_NOSIGNAL);
    if (sent >= 0) {
      done += static_cast<uint32_t>(sent);
    } else if (errno == EAGAIN) {
      return {true, 0, done};
    } else if (errno != EINTR) {
      return {false, TransferError(), done};
    }
  } while (done < length);
  return {true, 0, done};
}

ValueResult<uint32_t> CountBytes(int connection) {
  int count = 0;
  if (ioctl(connection, FIONREAD, &count) == -1) return {false, TransferError(), 0};
  return {true, 0, static_cast<uint32_t>(count)};
}

// EPIPE if the other end has closed and all its bytes were read.
ValueResult<uint32_t> BytesToRead(int connection) {
  ValueResult<uint32_t> count = CountBytes(connection);
  if (!count.ok || count.value != 0 || !HasHungUp(connection)) return count;
  // The other end may have sent its last bytes between the two looks.
  count = CountBytes(connection);
  if (count.ok && count.value == 0) return {false, EPIPE, 0};
  return count;
}

ValueResult<PipeContent> LookAtStream(int connection, void* buffer, uint32_t sizeBytes) {
  const ValueResult<uint32_t> available = BytesToRead(connection);
  if (!available.ok) return {false, available.error, {}};
  PipeContent content = {0, available.value, 0};
  if (sizeBytes == 0 || available.value == 0) return {true, 0, content};
  const ssize_t count = recv(connection, buffer, sizeBytes, MSG_PEEK | MSG_DONTWAIT);
  if (count == -1 && errno != EAGAIN) return {false, TransferError(), {}};
  content.read = count > 0 ? static_cast<uint32_t>(count) : 0;
  return {true, 0, content};
}

}  // namespace

NamedPipe* MakeNamedPipeRecord() {
  void* memory = std::malloc(sizeof(NamedPipe));
  if (memory == nullptr) return nullptr;
  auto* pipe = new (memory) NamedPipe{};
  pthread_mutex_init(&pipe->mutex, nullptr);
  pthread_cond_init(&pipe->change, nullptr);
  pipe->listener = kNoDescriptor;
  pipe->connection = kNoDescriptor;
  return pipe;
}

void EndNamedPipe(NamedPipe* pipe) {
  CloseIfOpen(pipe->listener);
  CloseIfOpen(pipe->connection);
  if (pipe->isServer) LeaveInstance(PipeFolder(), pipe->name, pipe->instance);
  ForgetRest(pipe);
  pthread_cond_destroy(&pipe->change);
  pthread_mutex_destroy(&pipe->mutex);
  std::free(pipe);
}

void PrepareConnection(int connection, bool isMessage, uint32_t writeBytes) {
  const int yes = 1;
  if (isMessage) setsockopt(connection, SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes);
  int current = 0;
  socklen_t length = sizeof current;
  getsockopt(connection, SOL_SOCKET, SO_SNDBUF, &current, &length);
  const int wanted = static_cast<int>(std::min<uint32_t>(writeBytes, INT32_MAX));
  if (wanted > current) setsockopt(connection, SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);
}

Result ConnectNamedPipe(NamedPipe* pipe) {
  if (!pipe->isServer) return {false, EINVAL};
  Look look = LookForClient(pipe, false);
  while (look.mustWait) {
    AwaitClient(pipe, look.listener);
    look = LookForClient(pipe, true);
  }
  return look.result;
}

Result DisconnectNamedPipe(NamedPipe* pipe) {
  if (!pipe->isServer) return {false, EINVAL};
  const HoldToBegin hold(pipe);
  const Result connected = RequireConnection(pipe);
  if (!connected.ok) return connected;
  ForgetRest(pipe);
  CloseWhenUnused(pipe, &pipe->connection);
  EndClosing(pipe);
  return {true, 0};
}

ValueResult<uint32_t> ReadNamedPipe(NamedPipe* pipe, void* buffer, uint32_t length) {
  const ConnectionUse use(pipe);
  if (!use.result().ok) return {false, use.result().error, 0};
  if (!pipe->isMessage) return ReadStream(pipe, use.descriptor(), buffer, length);
  if (!pipe->readsMessages) return ReadBytesOfMessages(pipe, use.descriptor(), buffer, length);
  return ReadMessage(pipe, use.descriptor(), buffer, length);
}

ValueResult<uint32_t> WriteNamedPipe(NamedPipe* pipe, const void* buffer, uint32_t length) {
  const ConnectionUse use(pipe);
  if (!use.result().ok) return {false, use.result().error, 0};
  if (!pipe->isMessage && length == 0) return {true, 0, 0};
  return SendAll(pipe, use.descriptor(), buffer, length);
}

ValueResult<PipeContent> PeekNamedPipe(NamedPipe* pipe, void* buffer, uint32_t sizeBytes) {
  const HoldToBegin hold(pipe);
  const Result connected = RequireConnection(pipe);
  if (!connected.ok) return {false, connected.error, {}};
  const uint32_t size = buffer != nullptr ? sizeBytes : 0;
  if (!pipe->isMessage) return LookAtStream(pipe->connection, buffer, size);
  return LookAtMessage(pipe, buffer, size);
}

}  // namespace kiv::os
