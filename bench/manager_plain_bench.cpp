// The memory manager in plain mode, its switch off, compared with other allocators.
#include "manager_allocators.h"
#include "workloads.h"

int main(int argc, char** argv) {
  kiv::bench::RegisterAll<kiv::bench::Plain>();
  return kiv::bench::Run(argc, argv);
}
