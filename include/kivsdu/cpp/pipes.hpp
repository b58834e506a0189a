// Pipes: anonymous and named ones, bytes and messages, and a server that another thread can stop.
// pipe.h states the rules of clients that read and write at the same time.
#ifndef KIVSDU_CPP_PIPES_HPP
#define KIVSDU_CPP_PIPES_HPP

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "../pipe.h"
#include "error.hpp"
#include "objects.hpp"

namespace kivsdu {
namespace detail {

// No pipe: the value that a failed open stores.
inline bool IsNoPipe(KivHandle handle) noexcept { return reinterpret_cast<intptr_t>(handle) == -1; }

inline uint32_t ClosePipeEnd(KivHandle* handle) { return KivSdPipeClose(nullptr, handle); }

}  // namespace detail

// What a read received.
struct PipeData {
  uint32_t bytes = 0;
  bool isEnd = false;    // the other end is closed or disconnected, and no data is left
  bool hasRest = false;  // the message is longer than the buffer; the next read continues it
};

// ---- One end of a pipe ----

// One end of a pipe, closed with its owner.
class PipeEnd {
 public:
  PipeEnd() noexcept = default;

  // Opens the client's end of a named pipe. A client reads bytes, even from a pipe of messages.
  //
  //   name    without a folder
  //   access  KIV_ACCESS_READ, KIV_ACCESS_WRITE or both
  //   server  another machine (Windows)
  static PipeEnd Open(const char* name, uint32_t access,
                      const char* server = KIV_PIPE_THIS_MACHINE) {
    ErrorCode error;
    PipeEnd end = Open(name, access, server, error);
    ThrowIfFailed(error, "open a pipe");
    return end;
  }
  static PipeEnd Open(const char* name, uint32_t access, const char* server,
                      ErrorCode& error) noexcept {
    PipeEnd end;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdNamedPipeOpen(ctx, server, name, end.Get(), access, KIV_SHARE_NONE,
                                KIV_DISPOSITION_OPEN_EXISTING, 0);
    });
    end.DropNoPipe(KIV_ST_PIPE_OPEN, error);
    return end;
  }

  bool IsOpen() const noexcept { return handle_.IsOpen(); }

  // Waits until there is data, and reads it. In message mode it reads one message. With an error,
  // nothing was read.
  PipeData Read(void* buffer, uint32_t length) {
    ErrorCode error;
    const PipeData data = Read(buffer, length, error);
    ThrowIfFailed(error, "read a pipe");
    return data;
  }
  PipeData Read(void* buffer, uint32_t length, ErrorCode& error) noexcept {
    PipeData data;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdPipeRead(ctx, Get(), buffer, length, &data.bytes);
    });
    if (error.Status() != KIV_ST_PIPE_READ) return data;
    data.isEnd = detail::IsPipeEnd(error.OsError());
    data.hasRest = error.OsError() == detail::kOsMessageRest;
    if (data.isEnd || !data.hasRest) data.bytes = 0;
    if (data.isEnd || data.hasRest) error = {};
    return data;
  }

  // Writes all bytes; in message mode they are one message. Waits until there is room. Returns the
  // bytes written: in no-wait mode only those that have room, which may be none.
  uint32_t Write(const void* buffer, uint32_t length) {
    ErrorCode error;
    const uint32_t count = Write(buffer, length, error);
    ThrowIfFailed(error, "write a pipe");
    return count;
  }
  uint32_t Write(const void* buffer, uint32_t length, ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdPipeWrite(ctx, Get(), buffer, length, &count);
    });
    return count;
  }

  // The bytes that can be read without waiting. On Windows only for a named pipe or a reading end.
  uint32_t Available() {
    ErrorCode error;
    const uint32_t bytes = Available(error);
    ThrowIfFailed(error, "look into a pipe");
    return bytes;
  }
  uint32_t Available(ErrorCode& error) noexcept {
    uint32_t bytes = 0;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdNamedPipePeek(ctx, Get(), 0, nullptr, nullptr, &bytes, nullptr);
    });
    return bytes;
  }

  // Closes the end. The destructor does that too, but ignores a failure.
  void Close() {
    ErrorCode error;
    Close(error);
    ThrowIfFailed(error, "close a pipe");
  }
  void Close(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem,
                            [&](KivSdContext* ctx) { return KivSdPipeClose(ctx, Get()); });
    *Get() = nullptr;
  }

  KivHandle* Get() noexcept { return handle_.Address(); }

 private:
  friend class NamedPipe;
  friend struct Pipe;

  // A call that fails without an OS error returns success, but no handle.
  void DropNoPipe(uint32_t failure, ErrorCode& error) noexcept {
    if (detail::IsNoPipe(*Get())) *Get() = nullptr;
    if (!error && !IsOpen()) error = ErrorCode(failure, 0, OsErrorKind::kSystem);
  }

  detail::OwnedHandle<detail::ClosePipeEnd> handle_;
};

// An anonymous pipe: bytes from one end to the other.
struct Pipe {
  //   bufferBytes  0 for the system's default
  explicit Pipe(uint32_t bufferBytes = 0) {
    ErrorCode error;
    Make(bufferBytes, error);
    ThrowIfFailed(error, "make a pipe");
  }
  Pipe(uint32_t bufferBytes, ErrorCode& error) noexcept { Make(bufferBytes, error); }

  PipeEnd readEnd;
  PipeEnd writeEnd;

 private:
  void Make(uint32_t bufferBytes, ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdPipeCreate(ctx, readEnd.Get(), writeEnd.Get(), bufferBytes);
    });
    readEnd.DropNoPipe(KIV_ST_PIPE_CREATE, error);
  }
};

// ---- Named pipes ----

// The form of a named pipe. By default bytes go both ways, and one client at a time is served.
struct PipeForm {
  uint32_t openMode = KIV_PIPE_DUPLEX;
  uint32_t pipeMode = KIV_PIPE_BYTES | KIV_PIPE_REJECT_REMOTE;
  uint32_t instances = 1;
  uint32_t outBytes = 8192;
  uint32_t inBytes = 8192;
  uint32_t defaultTimeoutMs = 0;
};

// Messages in place of bytes: a read of the server returns one message of the client.
inline constexpr uint32_t kPipeOfMessages =
    KIV_PIPE_MESSAGES | KIV_PIPE_READ_MESSAGES | KIV_PIPE_REJECT_REMOTE;

// Waits until an instance of a named pipe can be opened. Returns false if the time is over or there
// is no such pipe.
inline bool WaitForPipe(const char* name, std::chrono::milliseconds limit,
                        const char* server = KIV_PIPE_THIS_MACHINE) noexcept {
  // The system takes a limit of 0 for the pipe's default.
  const uint32_t limitMs = detail::Limit(limit);
  return KivSdNamedPipeWait(nullptr, server, name, limitMs == 0 ? 1 : limitMs) == KIV_ST_OK;
}

// The server's end of a named pipe: an instance for one client at a time.
class NamedPipe {
 public:
  //   name  without a folder
  explicit NamedPipe(const char* name, const PipeForm& form = {}) {
    ErrorCode error;
    Make(name, form, error);
    ThrowIfFailed(error, "make a named pipe");
  }
  NamedPipe(const char* name, const PipeForm& form, ErrorCode& error) noexcept {
    Make(name, form, error);
  }

  // Waits for a client. Returns false if the client came and left again: disconnect it, and wait for
  // the next.
  bool Connect() {
    ErrorCode error;
    const bool connected = Connect(error);
    ThrowIfFailed(error, "connect a client");
    return connected;
  }
  bool Connect(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdNamedPipeConnect(ctx, end_.Get());
    });
    if (error.Status() != KIV_ST_PIPE_CONNECT) return !error;
    const bool left = error.OsError() == detail::kOsClientLeft;
    // A client that opens the pipe during the call yields this status with the OS error 0.
    if (left || error.OsError() == 0) error = {};
    return !left && !error;
  }

  // Ends the connection. Data that the client has not read is lost.
  void Disconnect() {
    ErrorCode error;
    Disconnect(error);
    ThrowIfFailed(error, "disconnect a client");
  }
  void Disconnect(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdNamedPipeDisconnect(ctx, end_.Get());
    });
  }

  // The end through which the server reads and writes.
  PipeEnd& End() noexcept { return end_; }

 private:
  void Make(const char* name, const PipeForm& form, ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdNamedPipeCreate(ctx, name, end_.Get(), form.openMode, form.pipeMode,
                                  form.instances, form.outBytes, form.inBytes,
                                  form.defaultTimeoutMs);
    });
    end_.DropNoPipe(KIV_ST_PIPE_CREATE_NAMED, error);
  }

  PipeEnd end_;
};

// A server of one instance. One thread runs it, and another can stop it. The server outlives both.
//
//   kivsdu::PipeServer server("prices");
//   kivsdu::Thread thread([&] { server.Run([](kivsdu::PipeEnd& client) { ... }); });
//   ...
//   server.Stop();
class PipeServer {
 public:
  explicit PipeServer(const char* name, const PipeForm& form = {})
      : name_(name), access_(AccessOf(form.openMode)), pipe_(name, form) {}
  PipeServer(const PipeServer&) = delete;
  PipeServer& operator=(const PipeServer&) = delete;

  // Serves one client after the other until the server is stopped, and throws a Failure if a
  // connection fails.
  //
  //   serve  receives the end of each client, and returns when it has ended: data that the client
  //          has not read is then lost. An exception of it ends the loop
  template <class Serve>
  void Run(Serve serve) {
    const Running running(*this);
    while (!stopping_.load()) {
      const bool connected = pipe_.Connect();
      const Connection connection(pipe_);
      if (connected && !stopping_.load()) serve(pipe_.End());
    }
  }

  // Ends the loop, for good. Waits until the client that is being served has been served. A thread
  // that serves must not call it.
  void Stop() {
    stopping_.store(true);
    while (running_.load()) {
      Wake();
      if (ended_.WaitFor(kPatience)) return;
    }
  }

 private:
  static constexpr std::chrono::milliseconds kPatience{20};

  // The connection to a client, whatever ends it.
  class Connection {
   public:
    explicit Connection(NamedPipe& pipe) noexcept : pipe_(pipe) {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() {
      ErrorCode ignored;
      pipe_.Disconnect(ignored);
    }

   private:
    NamedPipe& pipe_;
  };

  // Tells Stop when the loop has ended.
  class Running {
   public:
    explicit Running(PipeServer& server) noexcept : server_(server) {
      // An earlier loop may have ended by an exception, and nobody waited for its end.
      ErrorCode ignored;
      server_.ended_.Reset(ignored);
      server_.running_.store(true);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() {
      server_.running_.store(false);
      ErrorCode ignored;
      server_.ended_.Set(ignored);
    }

   private:
    PipeServer& server_;
  };

  // What a client may ask for.
  static uint32_t AccessOf(uint32_t openMode) noexcept {
    uint32_t access = 0;
    if ((openMode & KIV_PIPE_INBOUND) != 0) access |= KIV_ACCESS_WRITE;
    if ((openMode & KIV_PIPE_OUTBOUND) != 0) access |= KIV_ACCESS_READ;
    return access;
  }

  // Ends the wait for a client by being one. Fails while the pipe does not wait; Stop tries again.
  void Wake() noexcept {
    ErrorCode ignored;
    PipeEnd::Open(name_.c_str(), access_, KIV_PIPE_THIS_MACHINE, ignored);
  }

  std::string name_;
  uint32_t access_;
  NamedPipe pipe_;
  Event ended_;
  std::atomic<bool> stopping_ = false;
  std::atomic<bool> running_ = false;
};

}  // namespace kivsdu

#endif
