// One thread's place in a trial. Threads end and others take their places.
#ifndef KIV_TESTS_STRESS_WORKER_H
#define KIV_TESTS_STRESS_WORKER_H

#include <atomic>
#include <cstdint>

#include "stress/random.h"

namespace kiv::stress {

// What is atomic is for whoever reports on the trial; relaxed, so that no order between threads
// comes of it that the lock would not make.
class Worker {
 public:
  // The first's number is 1: a lock that nobody holds has the owner 0.
  Worker(uint32_t number, uint64_t seed) : number_(number), random_(seed) {}

  uint32_t number() const { return number_; }
  Random& random() { return random_; }

  // Says what comes next, as a text that stays: "takes it".
  void Now(const char* step) { step_.store(step, std::memory_order_relaxed); }
  // Inside the lock once more.
  void CountEntry() { entries_.fetch_add(1, std::memory_order_relaxed); }

  const char* step() const { return step_.load(std::memory_order_relaxed); }
  uint64_t entries() const { return entries_.load(std::memory_order_relaxed); }

 private:
  const uint32_t number_;
  Random random_;
  std::atomic<const char*> step_{"has not begun"};
  std::atomic<uint64_t> entries_{0};
};

// Ends the process with a report of the running trial unless it holds. `what` says what went wrong
// as the end of a sentence: "a second writer entered".
void Expect(bool holds, const char* what);

}  // namespace kiv::stress

#endif
