#include "stress/trial.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "kivsdu/sync.h"
#include "stress/delay.h"

namespace kiv::stress {
namespace {

// Few threads produce the most orders of steps, many threads the longest queues.
constexpr uint32_t kThreads[] = {2, 2, 3, 3, 3, 4, 4, 5, 8, 16};
constexpr int32_t kSpinBudgets[] = {0, 1, 20, 200, 2000};
constexpr uint32_t kShortestMs = 40;
constexpr uint32_t kLongestMs = 160;
constexpr uint32_t kMaxVisitsInALife = 300;
constexpr std::chrono::milliseconds kBetweenLooks{5};

// The trial that Expect reports on.
std::atomic<const Trial*> running{nullptr};

// Reports the first failure only; other failing threads wait for the end of the process.
[[noreturn]] void ReportAndAbort(const char* what) {
  static std::atomic<bool> reported{false};
  while (reported.exchange(true)) pause();
  std::fprintf(stderr, "lock_stress: %s\n", what);
  const Trial* trial = running.load();
  if (trial != nullptr) trial->Report();
  std::abort();
}

}  // namespace

void Expect(bool holds, const char* what) {
  if (!holds) ReportAndAbort(what);
}

Trial::Trial(uint64_t seed, const Wishes& wishes)
    : seed_(seed),
      kind_(*wishes.kinds[seed % wishes.kinds.size()]),
      random_(seed),
      threads_(std::min(wishes.threads != 0 ? wishes.threads : random_.OneOf(kThreads),
                        kind_.mostThreads)),
      inTurns_(random_.OneIn(2)),
      spinBudget_(random_.OneOf(kSpinBudgets)),
      time_(random_.Between(kShortestMs, kLongestMs)),
      hangLooks_(static_cast<uint32_t>(wishes.hangSeconds * 1000) /
                 static_cast<uint32_t>(kBetweenLooks.count())),
      subject_(kind_.make(&random_)),
      turns_(seed, threads_) {
  for (uint32_t number = 1; number <= threads_; ++number) {
    workers_.emplace_back(number, Scramble(seed) + number);
  }
  // Set after the lock is created, because a process's first lock measures the budget.
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = spinBudget_;
  running.store(this);
}

Trial::~Trial() { running.store(nullptr); }

uint64_t Trial::Entries() const {
  uint64_t entries = 0;
  for (const Worker& worker : workers_) entries += worker.entries();
  return entries;
}

void Trial::Report() const {
  std::fprintf(stderr,
               "  lock     %s: %s\n"
               "  threads  %u, %s, which spin %d rounds before they yield\n"
               "  repeat   lock_stress --seed %llu and the other options as they were\n",
               kind_.name, subject_->Describe().c_str(), threads_,
               inTurns_ ? "in turns" : "at once", spinBudget_,
               static_cast<unsigned long long>(seed_));
  for (const Worker& worker : workers_) {
    std::fprintf(stderr, "  thread %2u entered %llu times and %s\n", worker.number(),
                 static_cast<unsigned long long>(worker.entries()), worker.step());
  }
}

// The visits of one visitor, which has its own nodes if the lock uses nodes.
void Trial::Visit(Worker* worker) {
  const std::unique_ptr<Visitor> visitor = subject_->MakeVisitor(worker);
  for (uint32_t left = worker->random().Between(1, kMaxVisitsInALife);
       left > 0 && !isOver_.load(std::memory_order_relaxed); --left) {
    visitor->Visit();
  }
}

void Trial::Live(Worker* worker) {
  if (inTurns_) {
    DelayInTurns(&turns_, worker->number() - 1);
    while (!isOver_.load(std::memory_order_relaxed)) {
      turns_.ChangePace(worker->number() - 1);
      Visit(worker);
    }
  } else {
    DelayFor(worker->random().Next(), worker->random().OneOf(kPaces));
    Visit(worker);
  }
  EndDelays();
}

void Trial::Occupy(Worker* worker) {
  do {
    std::thread([&] { Live(worker); }).join();
  } while (!isOver_.load(std::memory_order_relaxed));
  worker->Now("has ended");
  ended_.fetch_add(1);
}

// Counts looks instead of time, so that a suspended process does not count as a hang.
template <typename Condition>
void Trial::Watch(Condition isOver) {
  uint64_t seen = Entries();
  uint32_t looksWithout = 0;
  while (!isOver()) {
    std::this_thread::sleep_for(kBetweenLooks);
    const uint64_t entries = Entries();
    looksWithout = entries == seen ? looksWithout + 1 : 0;
    seen = entries;
    Expect(looksWithout < hangLooks_,
           "no progress: threads wait for a lock that is never released");
  }
}

void Trial::Run() {
  std::vector<std::thread> places;
  for (Worker& worker : workers_) places.emplace_back([&] { Occupy(&worker); });
  const auto end = std::chrono::steady_clock::now() + time_;
  Watch([&] { return std::chrono::steady_clock::now() >= end; });
  isOver_.store(true);
  Watch([&] { return ended_.load() == threads_; });
  for (std::thread& place : places) place.join();
  subject_->ExpectFree();
}

}  // namespace kiv::stress
