// The pause of writes; see write_pause.h.
#include "storage/write_pause.h"

#include <atomic>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/event.h"
#include "kivsdu/time.h"

namespace cellhost {
namespace {

// The lock's nodes lie in tables of the leases, where no other lock has any.
constexpr int32_t kLockNumber = 2;
constexpr int32_t kSlot = 0;
constexpr uint8_t kBlockingAllowed = 1;  // a pause is long

}  // namespace

WritePause::~WritePause() {
  KivSdContext* ctx = ThisContext();
  for (KivHandle* event : {&block_.drained, &block_.resume}) {
    if (*event != nullptr) Succeeded(ctx, KivSdEventClose(ctx, event), "close a pause's event");
  }
}

bool WritePause::Create() {
  KivSdContext* ctx = ThisContext();
  for (KivHandle* event : {&block_.drained, &block_.resume}) {
    if (!Succeeded(ctx, KivSdEventCreate(ctx, event), "make a pause's event")) return false;
  }
  KivRWLockInit(nullptr, kLockNumber, &block_.lock, kBlockingAllowed, kSlot);
  return true;
}

// acquire: a pause that was lifted in between is seen by a thread that reads files afterwards.
bool WritePause::IsInForce() {
  return std::atomic_ref<uint64_t>(block_.paused).load(std::memory_order_acquire) != 0;
}

// The rule of a writer that waits. While nobody writes, no such writer is there to lift the pause.
bool WritePause::HasExpired() const {
  KivSdContext* ctx = ThisContext();
  uint64_t now = 0;
  if (block_.maximumSeconds == 0 || !Succeeded(ctx, KivSdTime(ctx, &now), "read the clock")) {
    return false;
  }
  return static_cast<int64_t>(now - block_.startSeconds) >= block_.maximumSeconds;
}

WriteLease::WriteLease(WritePause* pause) {
  lease_.pause = pause->block();
  lease_.ctx = ThisContext();
}

bool WriteLease::Take() {
  return Succeeded(lease_.ctx, KivSdGetWriteIOLease(&lease_), "take a lease to write");
}

WriteLease::~WriteLease() {
  if (lease_.held != 0) {
    Succeeded(lease_.ctx, KivSdReleaseWriteIOLease(&lease_), "give a lease back");
  }
  Succeeded(nullptr, KivRWLockFreeQNodes(&lease_.locks), "free a lease's locks");
}

}  // namespace cellhost
