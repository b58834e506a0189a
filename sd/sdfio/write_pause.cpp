// Pausing the process's writes, and lifting the pause.
#include "kivsdu/status.h"
#include "kivsdu/time.h"
#include "kivsdu/writepause.h"
#include "sdfio/pause_block.h"

using namespace kiv;

namespace {

// How long a pauser waits before it counts the leases again: a wake-up that came between its count
// and its wait costs it no more.
constexpr uint32_t kDrainPollMs = 1000;

// Waits until no lease is out.
uint32_t Drain(KivSdWriteLease* lease) {
  KivSdWritePause& pause = *lease->pause;
  while (LeaseCount(pause) > 0) {
    // A gate that does not close only makes the wait below short.
    static_cast<void>(CloseGate(lease->ctx, &pause.drained));
    const uint32_t waited = KivSdEventWait(lease->ctx, &pause.drained, kDrainPollMs);
    if (IsShuttingDown(pause)) return KIV_WRITE_PAUSE_SHUTDOWN;
    if (waited != KIV_ST_OK && waited != KIV_ST_EVENT_TIMEOUT) return waited;
  }
  return KIV_ST_OK;
}

// With the lock held for writing. Kept: a drain that is given up leaves the pause in force, with
// the maximum and the start of the one before. Whoever asked for it has to lift it, and knows by
// the status that leases are out.
uint32_t Pause(KivSdWriteLease* lease, int64_t maxSeconds) {
  KivSdWritePause& pause = *lease->pause;
  // The gate first: a writer that sees the flag finds it closed. The flag alone says that there is
  // a pause; were the gate to stay open, writers would only wait busily.
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
  // Kept before the lock and not repeated behind it: who comes during a pause is told at once, and
  // two who come together both get theirs.
  if (IsPaused(pause)) return KIV_ST_WRITE_PAUSE;
  const uint32_t locked = KivSdStartWrite(nullptr, &lease->locks, &pause.lock);
  if (locked != KIV_ST_OK) return locked;
  const uint32_t status = Pause(lease, maxSeconds);
  static_cast<void>(KivSdEndRW(nullptr, &lease->locks, &pause.lock));
  return status;
}

// For reading only: writers that wait hold the lock for reading, and one of them may be the caller.
// It keeps a pauser out until the gate is open as well.
uint32_t KivSdUnpauseWriteIO(KivSdWriteLease* lease) {
  KivSdWritePause& pause = *lease->pause;
  // Without memory for the lock the pause is lifted all the same: writers wait for it.
  const bool locked = KivSdStartRead(nullptr, &lease->locks, &pause.lock) == KIV_ST_OK;
  if (IsPaused(pause)) {
    StorePaused(pause, 0);
    static_cast<void>(OpenGate(lease->ctx, &pause.resume));
  }
  if (locked) static_cast<void>(KivSdEndRW(nullptr, &lease->locks, &pause.lock));
  return KIV_ST_OK;
}
