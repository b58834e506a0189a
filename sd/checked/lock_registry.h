// Which thread holds which locks, and in which order threads have taken them.
//
// Whenever a thread takes a lock while it holds others, each pair "held before taken" is kept until
// one of both locks ends. A pair in both directions is a deadlock that has not happened yet.
//
// Any thread. Each function takes the gate.
#ifndef KIV_CHECKED_LOCK_REGISTRY_H
#define KIV_CHECKED_LOCK_REGISTRY_H

#include <cstdint>

namespace kiv::checked {

enum class LockMisuse : uint8_t {
  kNone,
  kInverted,   // the other lock is held, and was taken after this one by `thread`
  kReentered,  // the lock does not count, and the calling thread holds it
  kNotHeld,    // the calling thread does not hold it; `thread` does, 0 for none
  kEndedHeld,  // `thread` holds it
};

struct LockChecked {
  LockMisuse misuse;
  const void* other;
  uint32_t thread;
};

// ---- Spinlocks ----
// The library's own spinlocks are not checked. Hosts' spinlocks are known from their creation on.

void AddSpinlock(const void* lock);
bool IsKnownSpinlock(const void* lock);
void ForgetSpinlock(const void* lock);

// ---- All locks ----

// Keeps the pairs of the locks that the thread holds and this one, before the thread waits for it.
// `counts` says whether the thread may hold the lock already.
LockChecked CheckAcquire(const void* lock, bool counts);

// `table` is the thread's table for a reader-writer lock, else null.
void NoteAcquired(const void* lock, const void* table);

LockChecked CheckRelease(const void* lock);

// Notes a release; of all acquisitions if `all`.
void NoteReleased(const void* lock, bool all);

// Checks that nobody holds the lock, and forgets its pairs.
LockChecked CheckEnd(const void* lock);

// Checks that no lock is held with the table; `other` is one that is.
LockChecked CheckTableEnd(const void* table);

// Forgets the pairs of an earlier lock in this storage.
void NoteBegin(const void* lock);

// Ends the process through an assertion if there is a misuse. `kind` names the lock's kind.
void ReportLock(const LockChecked& checked, const void* lock, const char* kind);

}  // namespace kiv::checked

#endif
