// The memory manager in plain mode without its switch, in turn with other allocators.
#include "manager_allocators.h"
#include "workloads.h"

int main(int argc, char** argv) {
  kiv::bench::RegisterAll<kiv::bench::Plain>();
  return kiv::bench::Run(argc, argv);
}
