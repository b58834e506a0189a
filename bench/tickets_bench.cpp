// Thread heaps whose blocks other threads free, in a process that chose spinlocks of the design with
// tickets. manager_heaps_bench has the design by test-and-set.
#include <cstdio>

#include "lock_contenders.h"
#include "manager_allocators.h"
#include "workloads.h"

int main(int argc, char** argv) {
  using namespace kiv::bench;
  KivSdSetHardwareAcceleration(kTickets);
  if (!StartHeaps()) {
    std::fputs("The memory manager could not be started.\n", stderr);
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RegisterThreads<ThreadHeap>();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
