// Runs two operations on two threads, one thread at a time, in every order that interrupts each
// operation at most once.
//
// An operation can be interrupted at its points: before a lock is taken, after it is released, and
// around an access to an atomic. The sources under test are compiled with headers that call Point
// and Blocked there. In each run the first operation stops at one of its points, the second runs to
// one of its own, then the first runs to its end, and then the second.
#ifndef KIV_TESTS_INTERLEAVING_H
#define KIV_TESTS_INTERLEAVING_H

#include <cstdint>
#include <functional>

namespace kiv::test {

struct Interleaving {
  // Each operation runs on its own thread.
  std::function<void()> first;
  std::function<void()> second;

  // Optional. onStop is called when the first operation has stopped and the second has not begun;
  // `wholly` means that the second then runs to its end. onPoint is called at every point.
  std::function<void(bool wholly)> onStop = {};
  std::function<void()> onPoint = {};

  // Called before and after every run; `check` checks the result.
  std::function<void()> prepare;
  std::function<void()> check;

  // Runs all orders, or stops after the first one that fails a check. Returns the number of runs.
  uint64_t RunAll();
};

// Marks a point of the calling operation. Does nothing outside a run.
void Point();

// Call when the calling operation has to wait: lets the other operation run. Returns false outside
// a run, and if the other operation has ended.
bool Blocked();

// Whether the other operation holds the lock.
bool IsHeldByOther(const void* lock);
void NoteTaken(const void* lock);
void NoteReleased(const void* lock);

}  // namespace kiv::test

#endif
