#include "support/runtime_hook.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#ifdef KIV_HOOK_BY_PATCH
#include <algorithm>
#include <optional>

#include "support/import_patch.h"
#endif

namespace {

using kiv::test::RuntimeHook;

// Null if the calls go to the runtime.
std::atomic<RuntimeHook*> current{nullptr};

void* Allocate(size_t sizeBytes) {
  RuntimeHook* hook = current;
  return hook != nullptr ? hook->Allocate(sizeBytes) : RuntimeHook::RealAllocate(sizeBytes);
}

void* Reallocate(void* block, size_t sizeBytes) {
  RuntimeHook* hook = current;
  return hook != nullptr ? hook->Reallocate(block, sizeBytes)
                         : RuntimeHook::RealReallocate(block, sizeBytes);
}

void Free(void* block) {
  RuntimeHook* hook = current;
  if (hook != nullptr) {
    hook->Free(block);
  } else {
    RuntimeHook::RealFree(block);
  }
}

void* AllocateZeroed(size_t count, size_t sizeBytes) {
  void* block = Allocate(count * sizeBytes);
  return block == nullptr ? nullptr : std::memset(block, 0, count * sizeBytes);
}

}  // namespace

#ifdef KIV_HOOK_BY_PATCH

namespace {

bool Imports([[maybe_unused]] const char* function) {
#ifdef _WIN32
  const auto imports = kiv::test::ImportsOfLibrary();
  return std::any_of(imports.begin(), imports.end(),
                     [&](const kiv::test::Import& import) { return import.function == function; });
#else
  return false;  // the library calls no calloc
#endif
}

}  // namespace

namespace kiv::test {

struct RuntimeHooked::Patches {
  Patches() {
    // The DLL imports calloc only if the compiler generated calls of it.
    if (Imports("calloc")) calloc.emplace("calloc", reinterpret_cast<void*>(&AllocateZeroed));
  }

  ImportPatch malloc{"malloc", reinterpret_cast<void*>(&Allocate)};
  ImportPatch realloc{"realloc", reinterpret_cast<void*>(&Reallocate)};
  ImportPatch free{"free", reinterpret_cast<void*>(&Free)};
  std::optional<ImportPatch> calloc;
};

#ifndef _WIN32  // w32/runtime_functions.cpp
void* RuntimeHook::RealAllocate(size_t sizeBytes) { return std::malloc(sizeBytes); }

void* RuntimeHook::RealReallocate(void* block, size_t sizeBytes) {
  return std::realloc(block, sizeBytes);
}

void RuntimeHook::RealFree(void* block) { std::free(block); }
#endif

}  // namespace kiv::test

#else

extern "C" {

void* __real_malloc(size_t);
void* __wrap_malloc(size_t);
void* __real_calloc(size_t, size_t);
void* __wrap_calloc(size_t, size_t);
void* __real_realloc(void*, size_t);
void* __wrap_realloc(void*, size_t);
void __real_free(void*);
void __wrap_free(void*);

void* __wrap_malloc(size_t sizeBytes) { return Allocate(sizeBytes); }

void* __wrap_calloc(size_t count, size_t sizeBytes) {
  return current == nullptr ? __real_calloc(count, sizeBytes) : AllocateZeroed(count, sizeBytes);
}

void* __wrap_realloc(void* block, size_t sizeBytes) { return Reallocate(block, sizeBytes); }

void __wrap_free(void* block) { Free(block); }

}  // extern "C"

namespace kiv::test {

struct RuntimeHooked::Patches {};

void* RuntimeHook::RealAllocate(size_t sizeBytes) { return __real_malloc(sizeBytes); }

void* RuntimeHook::RealReallocate(void* block, size_t sizeBytes) {
  return __real_realloc(block, sizeBytes);
}

void RuntimeHook::RealFree(void* block) { __real_free(block); }

}  // namespace kiv::test

#endif

namespace kiv::test {

RuntimeHooked::RuntimeHooked(RuntimeHook* hook) : patches_(std::make_unique<Patches>()) {
  EXPECT_EQ(current, nullptr) << "one hook at a time";
  current = hook;
}

RuntimeHooked::~RuntimeHooked() { current = nullptr; }

}  // namespace kiv::test
