#include "os/lnx/raw_transfers.h"

#include <signal.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace kiv::os {
namespace {

template <typename Call>
int64_t Retried(Call call) {
  int64_t count = -1;
  do {
    count = call();
  } while (count == -1 && errno == EINTR);
  return count;
}

// Keeps SIGPIPE from the host while the object lives. The signal is directed at this thread: it is
// taken back before the thread accepts it again, unless it was already waiting before.
class PipeSignal {
 public:
  PipeSignal() {
    sigset_t waiting;
    sigemptyset(&waiting);
    sigpending(&waiting);
    wasWaiting_ = sigismember(&waiting, SIGPIPE) == 1;
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~PipeSignal() {
    if (!wasWaiting_) {
      const timespec now = {};
      Retried([&] { return int64_t{sigtimedwait(&pipe_, nullptr, &now)}; });
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  PipeSignal(const PipeSignal&) = delete;
  PipeSignal& operator=(const PipeSignal&) = delete;

 private:
  bool wasWaiting_;
  sigset_t pipe_;
  sigset_t before_;
};

}  // namespace

int64_t ReadRaw(int descriptor, void* buffer, size_t length) {
  return Retried([&] { return read(descriptor, buffer, length); });
}

int64_t WriteRaw(int descriptor, const void* buffer, size_t length) {
  return Retried([&] { return write(descriptor, buffer, length); });
}

int64_t ReadRawAt(int descriptor, void* buffer, size_t length, int64_t offset) {
  return Retried([&] { return pread(descriptor, buffer, length, offset); });
}

int64_t WriteRawAt(int descriptor, const void* buffer, size_t length, int64_t offset) {
  return Retried([&] { return pwrite(descriptor, buffer, length, offset); });
}

int64_t AppendRaw(int descriptor, const void* buffer, size_t length) {
  constexpr off_t kAtPosition = -1;
  const iovec bytes = {const_cast<void*>(buffer), length};
  const int64_t count =
      Retried([&] { return pwritev2(descriptor, &bytes, 1, kAtPosition, RWF_APPEND); });
  if (count != -1 || (errno != EOPNOTSUPP && errno != ENOSYS)) return count;
  if (lseek(descriptor, 0, SEEK_END) == -1) return -1;
  return WriteRaw(descriptor, buffer, length);
}

int64_t WriteRawWithoutSignal(int descriptor, const void* buffer, size_t length) {
  int64_t count = -1;
  int error = 0;
  {
    const PipeSignal kept;
    count = WriteRaw(descriptor, buffer, length);
    error = errno;
  }
  errno = error;
  return count;
}

}  // namespace kiv::os
