// Leases to write, and writes under a lease.
#include "kivsdu/file.h"
#include "kivsdu/status.h"
#include "kivsdu/sync.h"
#include "kivsdu/time.h"
#include "kivsdu/writepause.h"
#include "report.h"
#include "sdfio/pause_block.h"

using namespace kiv;

namespace {

// How long a writer waits before it checks whether the pause has expired.
constexpr uint32_t kResumePollMs = 2000;

void CountLease(KivSdWriteLease* lease) {
  static_cast<void>(KivSdAtomicIncrement(&lease->pause->leases));
  lease->held = 1;
}

// Withdraws a lease that was counted before the pause was seen. Wakes the pauser if it was the last
// lease.
void WithdrawLease(KivSdWriteLease* lease) {
  KivSdWritePause& pause = *lease->pause;
  const int64_t before = KivSdAtomicDecrement(&pause.leases);
  lease->held = 0;
  // The pauser counts again after a second even if it was not woken.
  if (before == 1) static_cast<void>(OpenGate(lease->ctx, &pause.drained));
}

// Counts a lease, and withdraws it if a pause is in force.
bool TryLease(KivSdWriteLease* lease) {
  CountLease(lease);
  if (!IsPaused(*lease->pause)) return true;
  WithdrawLease(lease);
  return false;
}

// The caller holds the lock for reading.
bool HasExpired(KivSdWriteLease* lease) {
  const KivSdWritePause& pause = *lease->pause;
  if (pause.maximumSeconds == 0) return false;
  uint64_t now = 0;
  static_cast<void>(KivSdTime(lease->ctx, &now));
  return static_cast<int64_t>(now - pause.startSeconds) >= pause.maximumSeconds;
}

// Waits once for the end of the pause, and lifts the pause if it has expired. The caller holds the
// lock for reading. Every status except success and time-out is a failure.
//
// The gate lets one writer through and closes behind that writer, which opens it again for the next
// while it still holds the lock. All writers go on at once, and the gate is open while no pause is
// in force (I3). If a pause is in force after the wait, the gate stays closed.
uint32_t AwaitResume(KivSdWriteLease* lease) {
  KivSdWritePause& pause = *lease->pause;
  const uint32_t waited = KivSdEventWait(lease->ctx, &pause.resume, kResumePollMs);
  if (waited == KIV_ST_OK && !IsPaused(pause)) {
    static_cast<void>(OpenGate(lease->ctx, &pause.resume));
  }
  if (IsShuttingDown(pause)) {
    static_cast<void>(KivSdUnpauseWriteIO(lease));
    return KIV_ST_OK;
  }
  if (waited == KIV_ST_EVENT_TIMEOUT && HasExpired(lease)) {
    static_cast<void>(KivSdUnpauseWriteIO(lease));
  }
  return waited;
}

// Waits until the lease is taken or waiting fails. The caller holds the lock for reading. After a
// time-out during a pause the lease is not counted again: that would only wake the pauser for
// nothing.
uint32_t AwaitLease(KivSdWriteLease* lease) {
  for (;;) {
    const uint32_t waited = AwaitResume(lease);
    if (waited != KIV_ST_OK && waited != KIV_ST_EVENT_TIMEOUT) return waited;
    if (waited == KIV_ST_EVENT_TIMEOUT && IsPaused(*lease->pause)) continue;
    if (TryLease(lease)) return KIV_ST_OK;
  }
}

// Gives the lease back after a write and restores the write's record, because waking a pauser
// overwrites it with a success.
uint32_t EndLeasedWrite(KivSdWriteLease* lease, uint32_t status) {
  const uint32_t osError = lease->ctx != nullptr ? lease->ctx->osError : 0;
  static_cast<void>(KivSdReleaseWriteIOLease(lease));
  return Report(lease->ctx, status, osError);
}

}  // namespace

uint32_t KivSdGetWriteIOLease(KivSdWriteLease* lease) {
  if (TryLease(lease)) return KIV_ST_OK;
  KivSdWritePause& pause = *lease->pause;
  const uint32_t locked = KivSdStartRead(nullptr, &lease->locks, &pause.lock);
  if (locked != KIV_ST_OK) return locked;
  const uint32_t status = AwaitLease(lease);
  static_cast<void>(KivSdEndRW(nullptr, &lease->locks, &pause.lock));
  return status;
}

// Compatibility: a thread without a lease may call this. It still wakes the pauser if no lease is
// out.
uint32_t KivSdReleaseWriteIOLease(KivSdWriteLease* lease) {
  KivSdWritePause& pause = *lease->pause;
  if (lease->held != 0) {
    if (LeaseCount(pause) > 0) static_cast<void>(KivSdAtomicDecrement(&pause.leases));
    lease->held = 0;
  }
  if (!IsPaused(pause) || LeaseCount(pause) != 0) return KIV_ST_OK;
  return OpenGate(lease->ctx, &pause.drained);
}

uint32_t KivSdLeasedFileWrite(KivSdWriteLease* lease, uint32_t file, const void* buffer,
                              uint32_t length, uint32_t* count) {
  const uint32_t leased = KivSdGetWriteIOLease(lease);
  if (leased != KIV_ST_OK) return leased;
  return EndLeasedWrite(lease, KivSdFileWrite(lease->ctx, file, buffer, length, count));
}

uint32_t KivSdLeasedFilePWrite(KivSdWriteLease* lease, uint32_t file, const void* buffer,
                               uint32_t offset, uint32_t length, uint32_t* count,
                               uint32_t* osError) {
  const uint32_t leased = KivSdGetWriteIOLease(lease);
  if (leased != KIV_ST_OK) return leased;
  return EndLeasedWrite(lease,
                        KivSdFilePWrite(lease->ctx, file, buffer, offset, length, count, osError));
}
