// The memory manager's thread heaps and short heaps, and memory stacks, compared with other
// allocators.
#include <cstdio>

#include "manager_allocators.h"
#include "workloads.h"

int main(int argc, char** argv) {
  using namespace kiv::bench;
  if (!StartHeaps()) {
    std::fputs("The memory manager could not be started.\n", stderr);
    return 1;
  }
  RegisterAll<ThreadHeap>();
  RegisterPairs<ShortHeap>();
  RegisterRequests<ShortHeap>();
  RegisterGrowth<ShortHeap>();
  RegisterRequests<MemoryStack>();
  return Run(argc, argv);
}
