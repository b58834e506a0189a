// The time from the start of a process to its end, for processes that do more and more of what a server
// does before it is ready. The first lock of a process measures the spin budget, which takes most of
// this time; a process without locks does not measure it.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "kivsdu/kivsdu.h"
#include "manager_allocators.h"
#include "own_process.h"

namespace {

using kiv::bench::RunItself;

bool MakesContext() {
  KivSdContext* context = nullptr;
  return KivSdInit(&context) == KIV_ST_OK && KivSdTerm(context) == KIV_ST_OK;
}

bool MakesLock() { return KivSdSpinlockCreate(nullptr, 0) != nullptr; }

struct Step {
  const char* name;
  bool (*run)();
};

const Step kSteps[] = {
    {"Nothing", [] { return true; }},
    {"Context", MakesContext},
    {"FirstLock", MakesLock},
    {"ThreadHeaps", [] { return kiv::bench::StartHeaps(); }},
};

void Start(benchmark::State& state, const char* step) {
  for (auto _ : state) {
    if (RunItself(step)) continue;
    std::fprintf(stderr, "start_bench: the process that runs '%s' failed\n", step);
    std::exit(1);
  }
}

int RunStep(const std::string& name) {
  for (const Step& step : kSteps) {
    if (name == step.name) return step.run() ? 0 : 1;
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && argv[1][0] != '-') return RunStep(argv[1]);
  for (const Step& step : kSteps) {
    benchmark::RegisterBenchmark(step.name, Start, step.name)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
