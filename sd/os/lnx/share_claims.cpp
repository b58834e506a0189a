// The locked bytes form rows, one for each kind of claim:
//
//   row  0 pending   1 reads   2 writes   3 denies reading   4 denies writing
//
// A descriptor that can read locks the first byte of a row, shared with others. The kernel refuses
// shared locks to a descriptor that can only write. Such a descriptor locks another byte of the row
// exclusively, which it chooses at random.
//
// Claims are set first and compared with those of others afterwards, so of two conflicting files at
// most one succeeds. Two files that claim at the same moment could both fail. A file that denies
// something is therefore pending while it compares: whoever meets a pending claim takes back its
// own claims and tries again later.
#include "os/lnx/share_claims.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "os/lnx/posix.h"

namespace kiv::os {

const uint32_t kErrorConflict = EBUSY;

namespace {

constexpr int64_t kPending = 0;
constexpr int64_t kFirstUse = 1;
constexpr int64_t kFirstDenial = 3;
constexpr int64_t kRows = 5;
constexpr int64_t kRowBytes = int64_t{1} << 32;
constexpr int64_t kFirstByte = int64_t{0x7FFFFF} << 40;

constexpr uint32_t kRights[] = {kRightRead, kRightWrite};

// A stopped process can stay pending. After this many attempts, a pending claim counts.
constexpr uint32_t kAttempts = 100;

int64_t StartOf(int64_t row) { return kFirstByte + row * kRowBytes; }

struct flock LockOf(int type, int64_t start, int64_t length) {
  struct flock lock = {};
  lock.l_type = static_cast<short>(type);
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  return lock;
}

Result SetLock(int descriptor, int type, int64_t start, int64_t length) {
  struct flock lock = LockOf(type, start, length);
  return FromErrno(fcntl(descriptor, F_OFD_SETLK, &lock));
}

// Spreads the bits of a changing number.
uint64_t AnyNumber() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  uint64_t number = static_cast<uint64_t>(now.tv_nsec) ^ static_cast<uint64_t>(gettid()) << 32;
  number *= 0x9E3779B97F4A7C15;
  return number ^ number >> 29;
}

bool CanRead(int descriptor) { return (fcntl(descriptor, F_GETFL) & O_ACCMODE) != O_WRONLY; }

Result Hold(int descriptor, int64_t row) {
  if (CanRead(descriptor)) return SetLock(descriptor, F_RDLCK, StartOf(row), 1);
  Result held = {false, EAGAIN};
  for (uint32_t i = 0; i < kAttempts && !held.ok && held.error == EAGAIN; ++i) {
    const auto column = static_cast<int64_t>(AnyNumber() % (kRowBytes - 1)) + 1;
    held = SetLock(descriptor, F_WRLCK, StartOf(row) + column, 1);
  }
  return held;
}

void Release(int descriptor, int64_t row, int64_t rows) {
  static_cast<void>(SetLock(descriptor, F_UNLCK, StartOf(row), rows * kRowBytes));
}

// Whether another open file has a claim in the row.
bool OthersHold(int descriptor, int64_t row) {
  struct flock lock = LockOf(F_WRLCK, StartOf(row), kRowBytes);
  return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

Result HoldRights(int descriptor, int64_t firstRow, uint32_t rights) {
  Result held = {true, 0};
  for (int64_t i = 0; i < 2 && held.ok; ++i) {
    if ((rights & kRights[i]) != 0) held = Hold(descriptor, firstRow + i);
  }
  return held;
}

bool OthersHoldAny(int descriptor, int64_t firstRow, uint32_t rights) {
  for (int64_t i = 0; i < 2; ++i) {
    if ((rights & kRights[i]) != 0 && OthersHold(descriptor, firstRow + i)) return true;
  }
  return false;
}

Result HoldAll(int descriptor, uint32_t uses, uint32_t denies) {
  Result held = {true, 0};
  if (denies != 0) held = Hold(descriptor, kPending);
  if (held.ok) held = HoldRights(descriptor, kFirstUse, uses);
  if (held.ok) held = HoldRights(descriptor, kFirstDenial, denies);
  return held;
}

bool Conflicts(int descriptor, uint32_t uses, uint32_t denies) {
  return OthersHoldAny(descriptor, kFirstDenial, uses) ||
         OthersHoldAny(descriptor, kFirstUse, denies);
}

void PauseBeforeAttempt(uint32_t attempt) {
  const timespec pause = {0, static_cast<long>(AnyNumber() % (uint64_t{10'000} * (attempt + 1)))};
  nanosleep(&pause, nullptr);
}

}  // namespace

Result ClaimFile(int descriptor, uint32_t uses, uint32_t denies) {
  for (uint32_t attempt = 0; attempt < kAttempts; ++attempt) {
    const Result held = HoldAll(descriptor, uses, denies);
    if (!held.ok) {
      Release(descriptor, kPending, kRows);
      return denies == 0 ? Result{true, 0} : held;
    }
    if (!Conflicts(descriptor, uses, denies)) {
      if (denies != 0) Release(descriptor, kPending, 1);
      return {true, 0};
    }
    const bool undecided = OthersHold(descriptor, kPending);
    Release(descriptor, kPending, kRows);
    if (!undecided) break;
    PauseBeforeAttempt(attempt);
  }
  return {false, kErrorConflict};
}

}  // namespace kiv::os
