// The C runtime's own allocator, whatever is patched.
//
// A program that links the library's objects shares its imports with them. Its C++ allocations, those
// of the test among them, come to the runtime directly, so that no hook sees them.
#include <new>

#include "support/runtime_hook.h"

// The program's import table. Patches change it later.
extern "C" {
extern void* (*__imp_malloc)(size_t);
extern void* (*__imp_realloc)(void*, size_t);
extern void (*__imp_free)(void*);
}

namespace {

using kiv::test::RuntimeHook;

// Read at the first C++ allocation, which comes before any patch.
struct RealFunctions {
  void* (*allocate)(size_t) = __imp_malloc;
  void* (*reallocate)(void*, size_t) = __imp_realloc;
  void (*free)(void*) = __imp_free;
};

const RealFunctions& Real() {
  static const RealFunctions real;
  return real;
}

}  // namespace

namespace kiv::test {

void* RuntimeHook::RealAllocate(size_t sizeBytes) { return Real().allocate(sizeBytes); }

void* RuntimeHook::RealReallocate(void* block, size_t sizeBytes) {
  return Real().reallocate(block, sizeBytes);
}

void RuntimeHook::RealFree(void* block) { Real().free(block); }

}  // namespace kiv::test

void* operator new(size_t sizeBytes) {
  void* block = RuntimeHook::RealAllocate(sizeBytes != 0 ? sizeBytes : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void operator delete(void* block) noexcept { RuntimeHook::RealFree(block); }
void operator delete(void* block, size_t) noexcept { RuntimeHook::RealFree(block); }
