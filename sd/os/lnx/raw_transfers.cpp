#include "os/lnx/raw_transfers.h"

#include <signal.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace kiv::os {

constinit std::atomic<bool> kernelHasNoSignal{true};

namespace {

// RWF_NOSIGNAL of the kernel's headers since Linux 6.18.
constexpr int kNoSignal = 0x100;

constexpr off_t kAtPosition = -1;

// Blocks SIGPIPE for this thread while the object lives, and takes back one that a write has raised
// meanwhile. One that was pending before stays pending.
class PipeSignalBlock {
 public:
  PipeSignalBlock() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&pipeSignal_);
    sigaddset(&pipeSignal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal_, &before_);
  }
  ~PipeSignalBlock() {
    const int error = errno;
    const timespec atOnce = {};
    if (!wasPending_ && error == EPIPE) {
      Retried([&] { return int64_t{sigtimedwait(&pipeSignal_, nullptr, &atOnce)}; });
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = error;
  }
  PipeSignalBlock(const PipeSignalBlock&) = delete;
  PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;

 private:
  sigset_t pipeSignal_;
  sigset_t before_;
  bool wasPending_;
};

}  // namespace

int64_t AppendRaw(int descriptor, const void* buffer, size_t length) {
  const iovec bytes = {const_cast<void*>(buffer), length};
  const int64_t count =
      Retried([&] { return pwritev2(descriptor, &bytes, 1, kAtPosition, RWF_APPEND); });
  if (count != -1 || (errno != EOPNOTSUPP && errno != ENOSYS)) return count;
  if (lseek(descriptor, 0, SEEK_END) == -1) return -1;
  return WriteRaw(descriptor, buffer, length);
}

int64_t WriteRawWithoutSignal(int descriptor, const void* buffer, size_t length) {
  // relaxed: every thread finds out by itself.
  if (kernelHasNoSignal.load(std::memory_order_relaxed)) {
    const iovec bytes = {const_cast<void*>(buffer), length};
    const int64_t count =
        Retried([&] { return pwritev2(descriptor, &bytes, 1, kAtPosition, kNoSignal); });
    if (count != -1 || (errno != EOPNOTSUPP && errno != ENOSYS)) return count;
    kernelHasNoSignal.store(false, std::memory_order_relaxed);
  }
  const PipeSignalBlock block;
  return WriteRaw(descriptor, buffer, length);
}

}  // namespace kiv::os
