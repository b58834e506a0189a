// The C runtime's allocator, which the library calls directly.
//
// The linker redirects the calls of the whole program, including the test's own. A patch may
// therefore call the allocator itself: its calls reach the runtime.
#include <cstdlib>

#include "support/lnx/seam_import.h"

namespace kiv::test {

KIV_SEAM_FUNCTION(malloc, Allocate, "malloc")
KIV_SEAM_FUNCTION(realloc, Reallocate, "realloc")
KIV_SEAM_FUNCTION(free, Free, "free")

namespace {

SeamImport<decltype(RealAllocate)> allocateImport("malloc", RealAllocate);
SeamImport<decltype(RealReallocate)> reallocateImport("realloc", RealReallocate);
SeamImport<decltype(RealFree)> freeImport("free", RealFree);

thread_local bool isInsideCall = false;

// Makes the call through the import, or straight to the runtime if it comes from a patch.
template <typename Import, typename Real, typename... Arguments>
auto Pass(const Import& import, Real real, Arguments... arguments) {
  struct Inside {
    Inside() { isInsideCall = true; }
    ~Inside() { isInsideCall = false; }
  };
  if (isInsideCall) return real(arguments...);
  const Inside inside;
  return import.Call(arguments...);
}

}  // namespace

void* WrapAllocate(size_t sizeBytes) noexcept {
  return Pass(allocateImport, RealAllocate, sizeBytes);
}

void* WrapReallocate(void* block, size_t sizeBytes) noexcept {
  return Pass(reallocateImport, RealReallocate, block, sizeBytes);
}

void WrapFree(void* block) noexcept { Pass(freeImport, RealFree, block); }

}  // namespace kiv::test
