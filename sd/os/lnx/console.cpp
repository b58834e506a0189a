// Linux: the console is the terminal on standard input. Its keys are read in a mode of their own
// (terminal.h), which holds only while a call runs: a host that ends at any other time leaves the
// terminal as it found it. Bytes that were read and not yet taken stay here, so that all operations
// see one queue.
#include "os/console.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "os/lnx/keys.h"
#include "os/lnx/posix.h"
#include "os/lnx/terminal.h"

namespace kiv::os {
namespace {

// A handle is the descriptor plus 1, because a null handle means that there is no console.
constexpr uintptr_t kInputHandle = STDIN_FILENO + 1;
constexpr uintptr_t kOutputHandle = STDOUT_FILENO + 1;

constexpr int64_t kEscapeMs = 50;      // after which an escape byte is a key by itself
constexpr int kSliceMs = 200;          // between two looks at the terminal's mode
constexpr uint8_t kEndOfInput = 0xFF;  // the byte that stands for the end of the input
constexpr unsigned char kErase = 127;  // sent by terminals for the backspace key
constexpr unsigned char kBackspace = 8;
constexpr unsigned char kReturn = 13;

// Guards the queue below. No call waits with it.
pthread_mutex_t queueMutex = PTHREAD_MUTEX_INITIALIZER;
constinit KeyDecoder decoder;
int64_t lastByteMs = 0;
int secondByte = -1;  // of an extended key whose prefix ReadKeyByte has returned; -1 if none

class QueueLock {
 public:
  QueueLock() { pthread_mutex_lock(&queueMutex); }
  ~QueueLock() { pthread_mutex_unlock(&queueMutex); }
  QueueLock(const QueueLock&) = delete;
  QueueLock& operator=(const QueueLock&) = delete;
};

int64_t NowMs() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * int64_t{1000} + now.tv_nsec / 1000000;
}

bool IsWhole() { return NowMs() - lastByteMs >= kEscapeMs; }

ValueResult<void*> StandardHandle(int descriptor, uintptr_t handle) {
  if (fcntl(descriptor, F_GETFD) == -1) return {true, 0, nullptr};
  return {true, 0, reinterpret_cast<void*>(handle)};
}

// Waits until input can be read; 0 only looks. Returns poll's events. If the kernel cannot poll, the
// read has to show the failure: otherwise a wait for a key would never end.
int WaitForInput(int timeoutMs) {
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  const int count = poll(&input, 1, timeoutMs);
  if (count == -1 && errno != EINTR) return POLLIN;
  return count > 0 ? input.revents : 0;
}

// Terminals send a newline for the return key if it was typed before the mode was set.
void Translate(unsigned char* bytes, size_t count) {
  std::replace(bytes, bytes + count, kErase, kBackspace);
  std::replace(bytes, bytes + count, static_cast<unsigned char>('\n'), kReturn);
}

// Reads what has been typed into the queue. Fails with EIO at the end of the input. The queue's
// mutex must be held.
Result ReadInput(bool isTerminal) {
  const size_t room = decoder.room();
  const int events = WaitForInput(0);
  if (events == 0 || room == 0) return {true, 0};
  unsigned char bytes[KeyDecoder::kCapacity];
  const StopsBlocked blocked;
  const ssize_t count = read(STDIN_FILENO, bytes, room);
  if (count == -1 && (errno == EINTR || errno == EAGAIN)) return {true, 0};
  // A process that has just lost the terminal fails to read.
  if (count == -1 && !IsInForeground(STDIN_FILENO)) return {true, 0};
  const bool isNothing = count == 0 && isTerminal && (events & POLLHUP) == 0;
  if (isNothing) return {true, 0};
  if (count <= 0) return {false, EIO};
  const auto size = static_cast<size_t>(count);
  if (isTerminal) Translate(bytes, size);
  decoder.Add(bytes, size);
  lastByteMs = NowMs();
  return {true, 0};
}

// The next key, in `key` if the result is kKey. Does not wait. The rest of a sequence may have been
// waiting for long: whether an escape byte stands alone is known only after reading.
Decoded TakeKey(bool isTerminal, Key* key, Result* read) {
  const QueueLock lock;
  const Decoded decoded = decoder.Take(false, key);
  if (decoded == Decoded::kKey) return decoded;
  if (IsInForeground(STDIN_FILENO)) *read = ReadInput(isTerminal);
  // At the end of the input no byte can follow an escape byte.
  return decoder.Take(!read->ok || IsWhole(), key);
}

// Waits for a key. Fails with EIO at the end of the input.
Result WaitForKey(Key* key) {
  const bool isTerminal = isatty(STDIN_FILENO) == 1;
  const KeyMode mode(STDIN_FILENO);
  for (;;) {
    Result read = {true, 0};
    const Decoded decoded = TakeKey(isTerminal, key, &read);
    if (decoded == Decoded::kKey) return {true, 0};
    if (!read.ok) return read;
    mode.Keep();
    if (!IsInForeground(STDIN_FILENO)) {
      poll(nullptr, 0, kSliceMs);  // only the shell's user can change that
    } else {
      WaitForInput(decoded == Decoded::kUnclear ? static_cast<int>(kEscapeMs) : kSliceMs);
    }
  }
}

// Whether the handle is that of a console.
Result CheckConsole(const void* input) {
  if (reinterpret_cast<uintptr_t>(input) != kInputHandle) return {false, EBADF};
  if (isatty(STDIN_FILENO) == 1) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

// Keeps SIGPIPE, which would end the host, from a write to a pipe that nobody reads.
class PipeSignalBlocked {
 public:
  PipeSignalBlocked() {
    sigset_t pending;
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGPIPE);
    wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &signal_, &mask_);
  }
  ~PipeSignalBlocked() {
    const timespec now = {};
    const int error = errno;
    if (!wasPending_) {
      while (sigtimedwait(&signal_, nullptr, &now) == -1 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    errno = error;
  }
  PipeSignalBlocked(const PipeSignalBlocked&) = delete;
  PipeSignalBlocked& operator=(const PipeSignalBlocked&) = delete;

 private:
  sigset_t signal_;
  sigset_t mask_;
  bool wasPending_;
};

}  // namespace

ValueResult<void*> StandardInput() { return StandardHandle(STDIN_FILENO, kInputHandle); }

ValueResult<void*> StandardOutput() { return StandardHandle(STDOUT_FILENO, kOutputHandle); }

ValueResult<uint32_t> ConsoleEventsWaiting(void* input) {
  const Result console = CheckConsole(input);
  if (!console.ok) return {false, console.error, 0};
  const QueueLock lock;
  Result read = {true, 0};
  if (decoder.Look(false) != Decoded::kKey && IsInForeground(STDIN_FILENO)) {
    const KeyMode mode(STDIN_FILENO);
    read = ReadInput(true);
  }
  const bool waits = decoder.Look(!read.ok || IsWhole()) == Decoded::kKey;
  if (!waits && !read.ok) return {false, read.error, 0};
  return {true, 0, waits ? 1u : 0u};
}

ValueResult<ConsoleEvent> TakeConsoleEvent(void* input) {
  const Result console = CheckConsole(input);
  if (!console.ok) return {false, console.error, {}};
  Key key = {};
  const Result taken = WaitForKey(&key);
  if (!taken.ok || !key.known) return {taken.ok, taken.error, {}};
  return {true, 0, {true, key.extended, key.character, key.virtualKey, key.scanCode}};
}

// At the end of the input, and without any, the byte is kEndOfInput, as with a console that the
// runtime cannot open.
uint8_t ReadKeyByte() {
  {
    const QueueLock lock;
    if (secondByte != -1) return static_cast<uint8_t>(std::exchange(secondByte, -1));
  }
  Key key = {};
  while (!key.known) {
    if (!WaitForKey(&key).ok) return kEndOfInput;
  }
  if (!key.extended) return key.character;
  const QueueLock lock;
  secondByte = key.prefixedCode;
  return key.prefix;
}

Result PrintText(const char* text) {
  const PipeSignalBlocked blocked;
  if (std::printf("%s", text) >= 0) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

}  // namespace kiv::os
