// Thread caches of the memory manager's plain mode, compared with other allocators.
#include "manager_allocators.h"
#include "workloads.h"

int main(int argc, char** argv) {
  KivSdSetMemoryManager(1);
  kiv::bench::RegisterAll<kiv::bench::ThreadCache>();
  return kiv::bench::Run(argc, argv);
}
