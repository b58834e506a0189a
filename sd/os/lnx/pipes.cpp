// Linux: an anonymous pipe is a pipe of the kernel. It wakes the reader several times faster than a
// pair of sockets does.
#include "os/pipes.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "os/lnx/anonymous_pipe.h"
#include "os/lnx/descriptor_wait.h"
#include "os/lnx/named_pipe.h"
#include "os/lnx/pipe_handle.h"
#include "os/lnx/posix.h"
#include "os/lnx/raw_transfers.h"

namespace kiv::os {

// An empty pipe in no-wait mode, or a client that came and left, as ERROR_NO_DATA on Windows.
const uint32_t kErrorPipeClosing = ENODATA;

namespace {

constexpr int kNoDescriptor = -1;

// ---- Writing ----

ValueResult<uint32_t> WriteAll(int descriptor, const void* buffer, uint32_t length) {
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  uint32_t done = 0;
  do {
    const int64_t written = WriteRawWithoutSignal(descriptor, bytes + done, length - done);
    if (written == -1) return {false, static_cast<uint32_t>(errno), done};
    done += static_cast<uint32_t>(written);
  } while (done < length);
  return {true, 0, done};
}

// ---- Reading ----

ValueResult<uint32_t> ReadSome(int descriptor, void* buffer, uint32_t length) {
  const int64_t count = ReadRaw(descriptor, buffer, length);
  if (count == -1) return {false, static_cast<uint32_t>(errno), 0};
  if (count == 0 && length != 0) return {false, EPIPE, 0};
  return {true, 0, static_cast<uint32_t>(count)};
}

// ---- Making ----

// The kernel's default is 64 KiB. It rounds a size up to pages and may refuse a large one.
void SetBufferSize(int descriptor, uint32_t sizeBytes) {
  constexpr int kLargestWithoutRights = 1 << 20;
  if (sizeBytes == 0) return;
  const int wanted = static_cast<int>(std::min<uint32_t>(sizeBytes, INT32_MAX));
  if (fcntl(descriptor, F_SETPIPE_SZ, wanted) != -1) return;
  fcntl(descriptor, F_SETPIPE_SZ, std::min(wanted, kLargestWithoutRights));
}

}  // namespace

void* MakePipeHandle(NamedPipe* named, int descriptor, bool canRead, bool canWrite) {
  Slot* slot = TakeHandleSlot<PipeHandle>();
  if (slot == nullptr) return nullptr;
  auto* content = ContentOf<PipeHandle>(slot);
  content->named = named;
  content->descriptor = descriptor;
  content->canRead = canRead;
  content->canWrite = canWrite;
  return PublishHandle<PipeHandle>(slot);
}

void PipeHandle::End() {
  if (named != nullptr) return EndNamedPipe(named);
  close(descriptor);
}

ValueResult<PipeEnds> MakePipe(uint32_t bufferBytes) {
  int ends[2] = {kNoDescriptor, kNoDescriptor};
  const Result made = FromErrno(pipe2(ends, O_CLOEXEC));
  if (!made.ok) return {false, made.error, {nullptr, nullptr}};
  SetBufferSize(ends[1], bufferBytes);
  void* read = MakePipeHandle(nullptr, ends[0], true, false);
  void* write = read != nullptr ? MakePipeHandle(nullptr, ends[1], false, true) : nullptr;
  if (write != nullptr) return {true, 0, {read, write}};
  close(ends[1]);
  if (read != nullptr) {
    static_cast<void>(ClosePipe(read));
  } else {
    close(ends[0]);
  }
  return {false, ENOMEM, {nullptr, nullptr}};
}

Result ClosePipe(void* pipe) { return CloseHandleOf<PipeHandle>(pipe); }

ValueResult<uint32_t> ReadPipe(void* pipe, void* buffer, uint32_t length) {
  const PipeUse use(pipe);
  if (!use) return {false, EBADF, 0};
  if (!use->canRead) return {false, EACCES, 0};
  if (use->named != nullptr) return ReadNamedPipe(use->named, buffer, length);
  return ReadSome(use->descriptor, buffer, length);
}

ValueResult<uint32_t> WritePipe(void* pipe, const void* buffer, uint32_t length) {
  const PipeUse use(pipe);
  if (!use) return {false, EBADF, 0};
  if (!use->canWrite) return {false, EACCES, 0};
  if (use->named != nullptr) return WriteNamedPipe(use->named, buffer, length);
  return WriteAll(use->descriptor, buffer, length);
}

// The kernel cannot show a pipe's bytes in place, but it can share them with a second pipe.
ValueResult<PipeContent> PeekAnonymousPipe(int descriptor, void* buffer, uint32_t sizeBytes) {
  int available = 0;
  const auto count = [&] { return ioctl(descriptor, FIONREAD, &available) != -1; };
  if (!count()) return {false, static_cast<uint32_t>(errno), {}};
  if (available == 0) {
    const int events = PollUntil(descriptor, POLLIN, DeadlineAfter(0));
    const bool isClosed = events > 0 && (events & POLLHUP) != 0;
    if (!isClosed) return {true, 0, {}};
    // The writer may have written its last bytes between the two looks.
    if (!count()) return {false, static_cast<uint32_t>(errno), {}};
    if (available == 0) return {false, EPIPE, {}};
  }
  PipeContent content = {0, static_cast<uint32_t>(available), 0};
  if (buffer == nullptr || sizeBytes == 0) return {true, 0, content};
  int second[2];
  if (pipe2(second, O_CLOEXEC | O_NONBLOCK) == -1) return {false, static_cast<uint32_t>(errno), {}};
  fcntl(second[1], F_SETPIPE_SZ, fcntl(descriptor, F_GETPIPE_SZ));
  const ssize_t shared = tee(descriptor, second[1], sizeBytes, SPLICE_F_NONBLOCK);
  const ssize_t copied = shared > 0 ? read(second[0], buffer, sizeBytes) : shared;
  const auto error = static_cast<uint32_t>(errno);
  close(second[0]);
  close(second[1]);
  if (copied == -1 && error != EAGAIN) return {false, error, {}};
  content.read = copied > 0 ? static_cast<uint32_t>(copied) : 0;
  return {true, 0, content};
}

}  // namespace kiv::os
