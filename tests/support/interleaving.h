// Two operations on two threads, of which one runs at a time: a test says at which of its points
// the first one stops for the second, and at which of its own the second lets the first go on.
//
// A point is a place where threads may meet: before a lock is taken, behind its release, around an
// access to an atomic. The sources under test are built with headers that call Point and Blocked
// there. All pairs of points in turn are all orders of steps in which each operation is left once.
#ifndef KIV_TESTS_INTERLEAVING_H
#define KIV_TESTS_INTERLEAVING_H

#include <cstdint>
#include <functional>

namespace kiv::test {

struct Interleaving {
  // Each runs on a thread of its own.
  std::function<void()> first;
  std::function<void()> second;

  // Optional. The one runs when the first has stopped and nothing of the second has run; `wholly`
  // says that the second will not be left before its end. The other runs at every point.
  std::function<void(bool wholly)> onStop = {};
  std::function<void()> onPoint = {};

  // Before and behind every run; the latter checks what came of it.
  std::function<void()> prepare;
  std::function<void()> check;

  // Runs all orders, up to the first that a check fails. Gives how many there were.
  uint64_t RunAll();
};

// Of the operation that calls. Does nothing outside of a run.
void Point();

// The operation that calls waits for the other one, which goes on. False outside of a run, and
// when the other one has ended.
bool Blocked();

// Whether a lock is held by the operation that does not call.
bool IsHeldByOther(const void* lock);
void NoteTaken(const void* lock);
void NoteReleased(const void* lock);

}  // namespace kiv::test

#endif
