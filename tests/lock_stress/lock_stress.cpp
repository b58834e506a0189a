// Stress of all locks: trial after trial, each with a lock, threads and a pace that it draws.
//
// The locks' sources are built into this program with a chance of a delay around every access to
// an atomic and every call that parks a thread or wakes it (delayed/atomic.h, delayed_calls.cpp).
// Trials count their seeds upwards, so that a trial that failed is repeated by starting with its
// seed; threads then make the same choices, and the system may make others.
#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <CLI/CLI.hpp>

#include "atomic.h"
#include "lock_stress/subject.h"
#include "lock_stress/trial.h"

static_assert(!std::is_same_v<kiv::Atomic<int>, std::atomic<int>>,
              "the include path puts the atomics with delays before the library's");

namespace {

using kiv::stress::AtomicsKinds;
using kiv::stress::Kind;
using kiv::stress::RWLockKinds;
using kiv::stress::SpinlockKinds;
using kiv::stress::Trial;
using kiv::stress::Wishes;

struct Options {
  double seconds = 60;
  uint64_t seed = 0;
  std::vector<std::string> locks;
  uint32_t threads = 0;
  double hangSeconds = 20;
};

struct Tally {
  uint64_t trials = 0;
  uint64_t entries = 0;
};

std::map<std::string, const Kind*> KindsByName() {
  std::map<std::string, const Kind*> kinds;
  for (const auto* family : {&SpinlockKinds(), &RWLockKinds(), &AtomicsKinds()}) {
    for (const Kind& kind : *family) kinds[kind.name] = &kind;
  }
  return kinds;
}

void AddOptions(CLI::App* app, const std::map<std::string, const Kind*>& kinds, Options* options) {
  options->seed = std::random_device()();
  app->add_option("--seconds", options->seconds, "How long")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app->add_option("--seed", options->seed, "Where the trials begin; any number by default");
  app->add_option("--lock", options->locks, "Only these; may be given several times")
      ->check(CLI::IsMember(&kinds));
  app->add_option("--threads", options->threads, "In every trial, where the lock bears so many")
      ->check(CLI::Range(2, 64));
  app->add_option("--hang", options->hangSeconds, "Seconds without any progress that are a hang")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
}

std::map<std::string, Tally> RunTrials(const Options& options, const Wishes& wishes) {
  std::map<std::string, Tally> tallies;
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
  for (uint64_t seed = options.seed; std::chrono::steady_clock::now() < end; ++seed) {
    Trial trial(seed, wishes);
    trial.Run();
    Tally& tally = tallies[trial.kind().name];
    ++tally.trials;
    tally.entries += trial.Entries();
  }
  return tallies;
}

}  // namespace

int main(int argc, char** argv) {
  const std::map<std::string, const Kind*> kinds = KindsByName();
  Options options;
  CLI::App app("Stress of the locks, with random delays inside them.");
  AddOptions(&app, kinds, &options);
  CLI11_PARSE(app, argc, argv);

  Wishes wishes = {{}, options.threads, options.hangSeconds};
  for (const std::string& lock : options.locks) wishes.kinds.push_back(kinds.at(lock));
  if (wishes.kinds.empty()) {
    for (const auto& [name, kind] : kinds) wishes.kinds.push_back(kind);
  }
  std::printf("lock_stress: %g s from seed %llu\n", options.seconds,
              static_cast<unsigned long long>(options.seed));
  std::fflush(stdout);
  for (const auto& [name, tally] : RunTrials(options, wishes)) {
    std::printf("%-26s %6llu trials %12llu entries\n", name.c_str(),
                static_cast<unsigned long long>(tally.trials),
                static_cast<unsigned long long>(tally.entries));
  }
  return 0;
}
