// One thread's place in a trial. When a thread ends, another takes its place.
#ifndef KIV_TESTS_STRESS_WORKER_H
#define KIV_TESTS_STRESS_WORKER_H

#include <atomic>
#include <cstdint>

#include "stress/random.h"

namespace kiv::stress {

// The atomics are for the report on the trial. They are relaxed, so that they add no order between
// threads beyond the lock's own.
class Worker {
 public:
  // Numbers begin at 1, because the owner of a free lock is 0.
  Worker(uint32_t number, uint64_t seed) : number_(number), random_(seed) {}

  uint32_t number() const { return number_; }
  Random& random() { return random_; }

  // Records the next step, for example "takes it". The text must outlive the trial.
  void Now(const char* step) { step_.store(step, std::memory_order_relaxed); }
  // Counts one more entry into the lock.
  void CountEntry() { entries_.fetch_add(1, std::memory_order_relaxed); }

  const char* step() const { return step_.load(std::memory_order_relaxed); }
  uint64_t entries() const { return entries_.load(std::memory_order_relaxed); }

 private:
  const uint32_t number_;
  Random random_;
  std::atomic<const char*> step_{"has not begun"};
  std::atomic<uint64_t> entries_{0};
};

// Unless the condition holds, reports on the running trial and ends the process. `what` describes
// the failure, for example "a second writer entered".
void Expect(bool holds, const char* what);

}  // namespace kiv::stress

#endif
