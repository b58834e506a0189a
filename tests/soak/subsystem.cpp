#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

unsigned char ByteOf(uint64_t number, uint64_t at) {
  return static_cast<unsigned char>(number * 131 + at * 7 + (at >> 8));
}

}  // namespace

// The cache of a thread comes first, and therefore ends last.
const std::vector<Kind>& Kinds() {
  static const std::vector<Kind> kinds = {{"thread caches", &MakeThreadCaches},
                                          {"blocks", &MakeBlocks},
                                          {"short heaps", &MakeShortHeaps},
                                          {"memory stacks", &MakeMemoryStacks},
                                          {"accounting", &MakeAccounting},
                                          {"atomics", &MakeAtomics},
                                          {"spinlocks", &MakeSpinlocks},
                                          {"reader-writer locks", &MakeRWLocks},
                                          {"kernel objects", &MakeKernelObjects},
                                          {"named objects", &MakeNamedObjects},
                                          {"shared blocks", &MakeSharedBlocks},
                                          {"segments", &MakeSegments},
                                          {"pipes", &MakePipes},
                                          {"files", &MakeFiles},
                                          {"direct files", &MakeDirectFiles},
                                          {"write pauses", &MakeWritePauses},
                                          {"threads", &MakeThreads},
                                          {"modules", &MakeModules},
                                          {"system", &MakeSystem}};
  return kinds;
}

void Fill(void* bytes, uint64_t count, uint64_t number) {
  auto* to = static_cast<unsigned char*>(bytes);
  for (uint64_t at = 0; at < count; ++at) to[at] = ByteOf(number, at);
}

bool IsFilled(const void* bytes, uint64_t count, uint64_t number) {
  const auto* from = static_cast<const unsigned char*>(bytes);
  for (uint64_t at = 0; at < count; ++at) {
    if (from[at] != ByteOf(number, at)) return false;
  }
  return true;
}

}  // namespace kiv::soak
