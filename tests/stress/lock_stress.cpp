// Stress test of all locks: a sequence of trials. Each trial draws a lock, threads and a pace.
//
// The locks' sources are built into this program with random delays around every access to an
// atomic and every call that parks or wakes a thread (delayed/atomic.h, delayed_calls.cpp). Each
// trial's seed is the previous one plus 1: to repeat a failed trial, start with its seed. A trial
// in turns (delay.h) then takes the same steps again. In other trials the threads make the same
// choices, but the system may schedule them differently.
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "atomic.h"
#include "stress/options.h"
#include "stress/subject.h"
#include "stress/trial.h"

static_assert(!std::is_same_v<kiv::Atomic<int>, std::atomic<int>>,
              "the include path must find the delayed atomics before the library's");

namespace {

using kiv::stress::Kind;
using kiv::stress::Options;
using kiv::stress::Trial;
using kiv::stress::Wishes;

struct Tally {
  uint64_t trials = 0;
  uint64_t entries = 0;
};

std::vector<const Kind*> AllKinds() {
  std::vector<const Kind*> kinds;
  for (const auto* family :
       {&kiv::stress::SpinlockKinds(), &kiv::stress::RWLockKinds(), &kiv::stress::AtomicsKinds()}) {
    for (const Kind& kind : *family) kinds.push_back(&kind);
  }
  return kinds;
}

std::vector<std::string> NamesOf(const std::vector<const Kind*>& kinds) {
  std::vector<std::string> names;
  for (const Kind* kind : kinds) names.push_back(kind->name);
  return names;
}

// Returns the requested kinds. Without a request, returns all kinds, and the reader-writer lock
// twice, because its mistakes need the rarest orders of steps.
std::vector<const Kind*> Choose(const std::vector<const Kind*>& kinds,
                                const std::vector<std::string>& names) {
  std::vector<const Kind*> chosen;
  if (names.empty()) {
    chosen = kinds;
    for (const Kind& kind : kiv::stress::RWLockKinds()) chosen.push_back(&kind);
  }
  for (const std::string& name : names) {
    for (const Kind* kind : kinds) {
      if (kind->name == name) chosen.push_back(kind);
    }
  }
  return chosen;
}

std::map<std::string, Tally> RunTrials(const Options& options, const Wishes& wishes) {
  using Clock = std::chrono::steady_clock;
  std::map<std::string, Tally> tallies;
  const auto end = Clock::now() + std::chrono::duration<double>(options.seconds);
  for (uint64_t seed = options.seed; Clock::now() < end; ++seed) {
    Trial trial(seed, wishes);
    trial.Run();
    Tally& tally = tallies[trial.kind().name];
    ++tally.trials;
    tally.entries += trial.Entries();
  }
  return tallies;
}

void Print(const std::map<std::string, Tally>& tallies) {
  for (const auto& [name, tally] : tallies) {
    std::printf("%-26s %6llu trials %12llu entries\n", name.c_str(),
                static_cast<unsigned long long>(tally.trials),
                static_cast<unsigned long long>(tally.entries));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<const Kind*> kinds = AllKinds();
  const Options options = kiv::stress::ParseOptions(argc, argv, NamesOf(kinds));
  std::printf("lock_stress: %g s from seed %llu\n", options.seconds,
              static_cast<unsigned long long>(options.seed));
  std::fflush(stdout);
  Print(RunTrials(options, {Choose(kinds, options.locks), options.threads, options.hangSeconds}));
  return 0;
}
