// Gate events and descriptor writes for native builds, where the platform seam does not bind them.
// A program that links this file uses the rest of the library unchanged.
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "kivsdu/event.h"
#include "kivsdu/file.h"
#include "kivsdu/status.h"

namespace {

// Lets one thread through and closes, like the system's auto-reset events.
class Gate {
 public:
  void Open() {
    const std::lock_guard<std::mutex> hold(mutex_);
    open_ = true;
    changed_.notify_one();
  }

  void Close() {
    const std::lock_guard<std::mutex> hold(mutex_);
    open_ = false;
  }

  bool Pass(uint32_t timeoutMs) {
    std::unique_lock<std::mutex> hold(mutex_);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    if (!changed_.wait_until(hold, limit, [this] { return open_; })) return false;
    open_ = false;
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = true;
};

Gate* GateOf(const KivHandle* event) { return static_cast<Gate*>(*event); }

uint32_t Record(KivSdContext* ctx, uint32_t status, uint32_t osError) {
  if (ctx != nullptr) {
    ctx->status = status;
    ctx->osError = osError;
  }
  return status;
}

}  // namespace

uint32_t KivSdEventCreate(KivSdContext* ctx, KivHandle* event) {
  *event = new Gate;
  return Record(ctx, KIV_ST_OK, 0);
}

uint32_t KivSdEventClose(KivSdContext* ctx, KivHandle* event) {
  delete GateOf(event);
  return Record(ctx, KIV_ST_OK, 0);
}

uint32_t KivSdEventSet(KivSdContext* ctx, KivHandle* event) {
  GateOf(event)->Close();
  return Record(ctx, KIV_ST_OK, 0);
}

uint32_t KivSdEventClear(KivSdContext* ctx, KivHandle* event) {
  GateOf(event)->Open();
  return Record(ctx, KIV_ST_OK, 0);
}

uint32_t KivSdEventWait(KivSdContext* ctx, KivHandle* event, uint32_t timeoutMs) {
  constexpr uint32_t kTimedOut = 258;
  if (GateOf(event)->Pass(timeoutMs)) return Record(ctx, KIV_ST_OK, 0);
  return Record(ctx, KIV_ST_EVENT_TIMEOUT, kTimedOut);
}

uint32_t KivSdFileWrite(KivSdContext* ctx, uint32_t file, const void* buffer, uint32_t length,
                        uint32_t* count) {
  *count = static_cast<uint32_t>(write(static_cast<int>(file), buffer, length));
  if (*count == length) return Record(ctx, KIV_ST_OK, 0);
  return Record(ctx, KIV_ST_FILE_WRITE, static_cast<uint32_t>(errno));
}

// Tests use only small offsets, so the width of an offset does not matter.
uint32_t KivSdFilePWrite(KivSdContext* ctx, uint32_t file, const void* buffer, uint32_t offset,
                         uint32_t length, uint32_t* count, uint32_t* osError) {
  *osError = 0;
  *count = 0;
  const ssize_t written = pwrite(static_cast<int>(file), buffer, length, offset);
  if (written >= 0) {
    *count = static_cast<uint32_t>(written);
    return Record(ctx, KIV_ST_OK, 0);
  }
  *osError = static_cast<uint32_t>(errno);
  return Record(ctx, errno == EBADF ? KIV_ST_FILE_READ : KIV_ST_FILE_WRITE, *osError);
}
