#include "support/runtime_memory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#ifdef _WIN32
#include <algorithm>
#include <optional>

#include "support/import_patch.h"
#endif

namespace {

// The lock tuning of the library runs threads of its own.
std::atomic<bool> watching{false};
std::atomic<uint64_t> failing{0};
std::atomic<uint64_t> allocationCount{0};
std::atomic<int64_t> liveCount{0};

// Counts an allocation, and says whether it is the one that fails.
bool Fails() { return watching && ++allocationCount == failing; }

void* CountTaken(void* block) {
  if (watching && block != nullptr) ++liveCount;
  return block;
}

void CountGiven(const void* block) {
  if (watching && block != nullptr) --liveCount;
}

}  // namespace

#ifdef _WIN32

namespace {

void* Malloc(size_t size) { return Fails() ? nullptr : CountTaken(std::malloc(size)); }

void* Calloc(size_t count, size_t size) {
  return Fails() ? nullptr : CountTaken(std::calloc(count, size));
}

void* Realloc(void* block, size_t size) {
  if (Fails()) return nullptr;
  void* moved = std::realloc(block, size);
  if (block == nullptr) CountTaken(moved);
  return moved;
}

void Free(void* block) {
  CountGiven(block);
  std::free(block);
}

bool Imports(const char* function) {
  const auto imports = kiv::test::ImportsOf("kivsdu.dll");
  return std::any_of(imports.begin(), imports.end(),
                     [&](const kiv::test::Import& import) { return import.function == function; });
}

}  // namespace

struct kiv::test::RuntimeMemory::Patches {
  Patches() {
    // Where the compiler saw fit to use it.
    if (Imports("calloc")) calloc.emplace("calloc", reinterpret_cast<void*>(&Calloc));
  }

  ImportPatch malloc{"malloc", reinterpret_cast<void*>(&Malloc)};
  ImportPatch realloc{"realloc", reinterpret_cast<void*>(&Realloc)};
  ImportPatch free{"free", reinterpret_cast<void*>(&Free)};
  std::optional<ImportPatch> calloc;
};

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

void* __wrap_malloc(size_t size) { return Fails() ? nullptr : CountTaken(__real_malloc(size)); }

void* __wrap_calloc(size_t count, size_t size) {
  return Fails() ? nullptr : CountTaken(__real_calloc(count, size));
}

void* __wrap_realloc(void* block, size_t size) {
  if (Fails()) return nullptr;
  void* moved = __real_realloc(block, size);
  if (block == nullptr) CountTaken(moved);
  return moved;
}

void __wrap_free(void* block) {
  CountGiven(block);
  __real_free(block);
}

}  // extern "C"

struct kiv::test::RuntimeMemory::Patches {};

#endif

namespace kiv::test {

RuntimeMemory::RuntimeMemory(uint64_t number) : patches_(std::make_unique<Patches>()) {
  failing = number;
  allocationCount = 0;
  liveCount = 0;
  watching = true;
}

RuntimeMemory::~RuntimeMemory() { watching = false; }

bool RuntimeMemory::failed() const { return failing != kNever && allocationCount >= failing; }

uint64_t RuntimeMemory::allocations() const { return allocationCount; }

int64_t RuntimeMemory::live() const { return liveCount; }

}  // namespace kiv::test
