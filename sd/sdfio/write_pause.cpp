// Pauses the process's writes, and lifts the pause.
#include "kivsdu/status.h"
#include "kivsdu/time.h"
#include "kivsdu/writepause.h"
#include "sdfio/pause_block.h"

using namespace kiv;

namespace {

// How long a pauser waits before it counts the leases again. A pauser that misses a wake-up between
// its count and its wait loses no more than this time.
constexpr uint32_t kDrainPollMs = 1000;

// Waits until no lease is out.
uint32_t Drain(KivSdWriteLease* lease) {
  KivSdWritePause& pause = *lease->pause;
  while (LeaseCount(pause) > 0) {
    // If the gate cannot be closed, the wait below only ends early.
    static_cast<void>(CloseGate(lease->ctx, &pause.drained));
    const uint32_t waited = KivSdEventWait(lease->ctx, &pause.drained, kDrainPollMs);
    if (IsShuttingDown(pause)) return KIV_WRITE_PAUSE_SHUTDOWN;
    if (waited != KIV_ST_OK && waited != KIV_ST_EVENT_TIMEOUT) return waited;
  }
  return KIV_ST_OK;
}

// Begins the pause. The caller holds the lock for writing.
//
// Compatibility: if the drain fails or is given up, the pause stays in force with the maximum and
// the start of the previous pause. The status shows that leases may still be out. The caller must
// lift the pause.
uint32_t Pause(KivSdWriteLease* lease, int64_t maxSeconds) {
  KivSdWritePause& pause = *lease->pause;
  // Closes the gate first, so that a writer that sees the flag finds the gate closed. The flag
  // alone puts the pause in force: if the gate stayed open, writers would only wait busily.
  static_cast<void>(CloseGate(lease->ctx, &pause.resume));
  StorePaused(pause, 1);
  const uint32_t drained = Drain(lease);
  if (drained != KIV_ST_OK) return drained;
  pause.maximumSeconds = maxSeconds;
  return KivSdTime(lease->ctx, &pause.startSeconds);
}

}  // namespace

uint32_t KivSdPauseWriteIO(KivSdWriteLease* lease, int64_t maxSeconds) {
  KivSdWritePause& pause = *lease->pause;
  // Compatibility: checked before the lock and not again under it. A second pauser fails at once
  // during a pause, and two pausers that arrive together both succeed.
  if (IsPaused(pause)) return KIV_ST_WRITE_PAUSE;
  const uint32_t locked = KivSdStartWrite(nullptr, &lease->locks, &pause.lock);
  if (locked != KIV_ST_OK) return locked;
  const uint32_t status = Pause(lease, maxSeconds);
  static_cast<void>(KivSdEndRW(nullptr, &lease->locks, &pause.lock));
  return status;
}

// Takes the lock for reading only: waiting writers hold it for reading, and the caller may be one
// of them. The lock keeps a pauser out until the gate is open too.
uint32_t KivSdUnpauseWriteIO(KivSdWriteLease* lease) {
  KivSdWritePause& pause = *lease->pause;
  // The pause is lifted even if the lock cannot be taken: writers wait for it.
  const bool locked = KivSdStartRead(nullptr, &lease->locks, &pause.lock) == KIV_ST_OK;
  if (IsPaused(pause)) {
    StorePaused(pause, 0);
    static_cast<void>(OpenGate(lease->ctx, &pause.resume));
  }
  if (locked) static_cast<void>(KivSdEndRW(nullptr, &lease->locks, &pause.lock));
  return KIV_ST_OK;
}
