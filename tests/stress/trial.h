// One trial: some threads use one lock for a short time.
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

// The settings of all trials.
struct Wishes {
  std::vector<const Kind*> kinds;  // used in turn
  uint32_t threads;                // 0: each trial draws its number
  double hangSeconds;              // without progress, after which a trial counts as hung
};

// The seed decides everything except the scheduling of threads in a real trial. If a check fails or
// no thread makes progress, the trial reports and ends the process.
class Trial {
 public:
  Trial(uint64_t seed, const Wishes& wishes);
  ~Trial();
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  void Run();

  const Kind& kind() const { return kind_; }
  uint64_t Entries() const;

  // Prints the trial, how to repeat it, and the current step of every thread.
  void Report() const;

 private:
  // Runs the threads of one place, one after the other. A trial in turns has one thread per place.
  void Occupy(Worker* worker);
  void Live(Worker* worker);
  void Visit(Worker* worker);

  // Waits until `isOver` returns true; fails if there is no progress for too long.
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
  std::atomic<uint32_t> ended_{0};  // number of places whose last thread has ended
};

}  // namespace kiv::stress

#endif
