// One trial: some threads use one lock for a moment.
#ifndef KIV_TESTS_STRESS_TRIAL_H
#define KIV_TESTS_STRESS_TRIAL_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "stress/subject.h"
#include "stress/turns.h"
#include "stress/worker.h"

namespace kiv::stress {

// What is asked of all trials.
struct Wishes {
  std::vector<const Kind*> kinds;  // one after the other
  uint32_t threads;                // 0: as many as each trial draws
  double hangSeconds;              // without any progress
};

// The seed decides everything but what the threads and the system make of it. The process ends
// with a report when a check fails or nothing moves any more.
class Trial {
 public:
  Trial(uint64_t seed, const Wishes& wishes);
  ~Trial();
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  void Run();

  const Kind& kind() const { return kind_; }
  uint64_t Entries() const;

  // Prints which trial this is, how to repeat it, and what every thread is at.
  void Report() const;

 private:
  // All the threads of one place, one after the other; in turns it is one thread.
  void Occupy(Worker* worker);
  void Live(Worker* worker);
  void Visit(Worker* worker);

  // Waits until `isOver`, unless nothing moves for too long.
  template <typename Condition>
  void Watch(Condition isOver);

  const uint64_t seed_;
  const Kind& kind_;
  Random random_;
  const uint32_t threads_;
  const bool inTurns_;
  const int32_t spinBudget_;
  const std::chrono::milliseconds time_;
  const uint32_t hangLooks_;
  std::unique_ptr<Subject> subject_;
  Turns turns_;
  std::deque<Worker> workers_;
  std::atomic<bool> isOver_{false};
  std::atomic<uint32_t> ended_{0};  // places whose last thread has ended
};

}  // namespace kiv::stress

#endif
