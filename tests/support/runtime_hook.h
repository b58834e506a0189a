// The C runtime's allocator in a test's hands: the library's calls of it go to a hook.
//
// On Windows the DLL's calls of malloc, calloc, realloc and free are patched. Elsewhere the linker
// sends those of the whole program here, the test's own too, which see the hook only while there is
// one. Link the program with kiv_runtime_hook.
#ifndef KIV_TESTS_RUNTIME_HOOK_H
#define KIV_TESTS_RUNTIME_HOOK_H

#include <cstddef>
#include <memory>

namespace kiv::test {

// What the calls come to. A hook is called by any thread that the library runs on, and allocates
// nothing itself but through the runtime's own below.
class RuntimeHook {
 public:
  RuntimeHook() = default;
  virtual ~RuntimeHook() = default;
  RuntimeHook(const RuntimeHook&) = delete;
  RuntimeHook& operator=(const RuntimeHook&) = delete;

  // Of malloc and of calloc, whose block is zeroed afterwards.
  virtual void* Allocate(size_t sizeBytes) = 0;
  virtual void* Reallocate(void* block, size_t sizeBytes) = 0;
  virtual void Free(void* block) = 0;

  // The runtime itself.
  static void* RealAllocate(size_t sizeBytes);
  static void* RealReallocate(void* block, size_t sizeBytes);
  static void RealFree(void* block);
};

// As long as it lives the calls go to the hook. One at a time.
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
