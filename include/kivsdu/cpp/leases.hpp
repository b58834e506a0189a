// The write pause: leases of writers, and a pause that waits for them. writepause.h states the
// rules.
#ifndef KIVSDU_CPP_LEASES_HPP
#define KIVSDU_CPP_LEASES_HPP

#include <chrono>

#include "../event.h"
#include "../writepause.h"
#include "files.hpp"
#include "locks.hpp"
#include "objects.hpp"

namespace kivsdu {

// The pause block, one for the process.
class WritePause {
 public:
  WritePause() {
    ErrorCode error;
    Make(error);
    ThrowIfFailed(error, "make a write pause");
  }
  explicit WritePause(ErrorCode& error) noexcept { Make(error); }
  WritePause(const WritePause&) = delete;
  WritePause& operator=(const WritePause&) = delete;

  // At the end of the process: a pauser gives up, and waiting writers lift the pause.
  void Shutdown() noexcept { pause_.shutdown = 1; }

  KivSdWritePause* Get() noexcept { return &pause_; }

 private:
  void Make(ErrorCode& error) noexcept {
    drained_ = MakeGate(error);
    if (!error) resume_ = MakeGate(error);
    pause_.drained = *drained_.Address();
    pause_.resume = *resume_.Address();
    KivRWLockInit(nullptr, 0, &pause_.lock, 1, 0);
  }
  static detail::OwnedHandle<detail::CloseGate> MakeGate(ErrorCode& error) noexcept {
    detail::OwnedHandle<detail::CloseGate> gate;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdEventCreate(ctx, gate.Address());
    });
    return gate;
  }

  detail::OwnedHandle<detail::CloseGate> drained_;
  detail::OwnedHandle<detail::CloseGate> resume_;
  KivSdWritePause pause_ = {};
};

// A thread's part in a write pause. As a lock of the standard's guards it is the thread's lease:
//
//   std::lock_guard lease(writer);
//   file.WriteAt(...);
//
// Leases do not nest, and a thread that has one must not pause.
class Writer {
 public:
  explicit Writer(WritePause& pause) noexcept {
    lease_.pause = pause.Get();
    lease_.ctx = &ctx_;
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() { KivRWLockFreeQNodes(&lease_.locks); }

  // Waits while a pause is in force.
  void lock() {
    ErrorCode error;
    lock(error);
    ThrowIfFailed(error, "take a write lease");
  }
  void lock(ErrorCode& error) noexcept { error = Outcome(KivSdGetWriteIOLease(&lease_)); }
  void unlock() noexcept { KivSdReleaseWriteIOLease(&lease_); }

  // Writes at an offset under a lease, and returns the bytes written.
  uint32_t WriteAt(const File& file, const void* buffer, uint32_t offset, uint32_t length) {
    ErrorCode error;
    const uint32_t count = WriteAt(file, buffer, offset, length, error);
    ThrowIfFailed(error, "write under a lease");
    return count;
  }
  uint32_t WriteAt(const File& file, const void* buffer, uint32_t offset, uint32_t length,
                   ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = Outcome(
        KivSdLeasedFilePWrite(&lease_, file.Descriptor(), buffer, offset, length, &count, nullptr));
    return error ? 0 : count;
  }

  // Stops all writers, and waits until they have returned their leases.
  //
  //   maximum  the longest pause, in whole seconds; 0 for no limit
  void Pause(std::chrono::seconds maximum) {
    ErrorCode error;
    Pause(maximum, error);
    ThrowIfFailed(error, "pause the writers");
  }
  // After KIV_WRITE_PAUSE_SHUTDOWN and KIV_ST_EVENT_WAIT the pause stays in force: call Resume.
  void Pause(std::chrono::seconds maximum, ErrorCode& error) noexcept {
    error = Outcome(KivSdPauseWriteIO(&lease_, maximum.count()));
  }
  void Resume() noexcept { KivSdUnpauseWriteIO(&lease_); }

  KivSdWriteLease* Get() noexcept { return &lease_; }

 private:
  ErrorCode Outcome(uint32_t status) const noexcept {
    if (status == KIV_ST_OK) return {};
    const bool isInContext = ctx_.status == status;
    return detail::Positioned({status, isInContext ? ctx_.osError : 0, OsErrorKind::kSystem});
  }

  KivSdContext ctx_ = {};
  KivSdWriteLease lease_ = {};
};

// A pause for a scope: stops the writers, and lets them go on at the end of the scope.
class PauseGuard {
 public:
  // If the pause fails, no pause of this guard stays in force.
  PauseGuard(Writer& writer, std::chrono::seconds maximum) : writer_(writer) {
    ErrorCode error;
    writer_.Pause(maximum, error);
    if (error.Status() == KIV_WRITE_PAUSE_SHUTDOWN || error.Status() == KIV_ST_EVENT_WAIT) {
      writer_.Resume();
    }
    ThrowIfFailed(error, "pause the writers");
  }
  PauseGuard(const PauseGuard&) = delete;
  PauseGuard& operator=(const PauseGuard&) = delete;
  ~PauseGuard() { writer_.Resume(); }

 private:
  Writer& writer_;
};

}  // namespace kivsdu

#endif
