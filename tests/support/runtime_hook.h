// Redirects the library's calls of the C runtime's allocator to a hook of the test.
//
// On Windows only the DLL's calls of malloc, calloc, realloc and free are patched, or those of a
// program that links the library's objects; the program's C++ allocations are not redirected.
// Elsewhere the linker redirects all calls of the program, including the test's own. Without a hook
// they reach the runtime. Link the program with kiv_runtime_hook.
#ifndef KIV_TESTS_RUNTIME_HOOK_H
#define KIV_TESTS_RUNTIME_HOOK_H

#include <cstddef>
#include <memory>

namespace kiv::test {

// Receives the calls. Any thread that calls the library calls the hook. A hook allocates memory
// only through the Real... functions below.
class RuntimeHook {
 public:
  RuntimeHook() = default;
  virtual ~RuntimeHook() = default;
  RuntimeHook(const RuntimeHook&) = delete;
  RuntimeHook& operator=(const RuntimeHook&) = delete;

  // Serves malloc and calloc. The block of a calloc is zeroed afterwards.
  virtual void* Allocate(size_t sizeBytes) = 0;
  virtual void* Reallocate(void* block, size_t sizeBytes) = 0;
  virtual void Free(void* block) = 0;

  // The runtime's own functions.
  static void* RealAllocate(size_t sizeBytes);
  static void* RealReallocate(void* block, size_t sizeBytes);
  static void RealFree(void* block);
};

// Redirects the calls to the hook during its lifetime. Only one object at a time.
class RuntimeHooked {
 public:
  explicit RuntimeHooked(RuntimeHook* hook);
  ~RuntimeHooked();
  RuntimeHooked(const RuntimeHooked&) = delete;
  RuntimeHooked& operator=(const RuntimeHooked&) = delete;

 private:
  struct Patches;
  std::unique_ptr<Patches> patches_;
};

}  // namespace kiv::test

#endif
