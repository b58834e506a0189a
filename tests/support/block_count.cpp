#include "support/block_count.h"

#include <atomic>
#include <cstdlib>

#ifdef _WIN32
#include "support/import_patch.h"
#else
#include "kivsdu/manager.h"
#endif

namespace {

// Atomic: natively every thread's calls come here, even without a BlockCount.
std::atomic<uint64_t> allocations{0};
std::atomic<uint64_t> frees{0};

}  // namespace

#ifdef _WIN32

namespace {

void* CountingMalloc(size_t sizeBytes) {
  ++allocations;
  return std::malloc(sizeBytes);
}

void CountingFree(void* block) {
  ++frees;
  std::free(block);
}

}  // namespace

struct kiv::test::BlockCount::Patches {
  ImportPatch malloc{"malloc", reinterpret_cast<void*>(&CountingMalloc)};
  ImportPatch free{"free", reinterpret_cast<void*>(&CountingFree)};
};

#else

extern "C" {

uint32_t __real_adMalloc(void*, uint64_t, void**, const char*, uint32_t);
uint32_t __wrap_adMalloc(void*, uint64_t, void**, const char*, uint32_t);
uint32_t __real_adMallocPolicy(void*, uint64_t, void**, uint8_t, const char*, uint32_t);
uint32_t __wrap_adMallocPolicy(void*, uint64_t, void**, uint8_t, const char*, uint32_t);
uint32_t __real_adFree(void*, const char*, uint32_t);
uint32_t __wrap_adFree(void*, const char*, uint32_t);

uint32_t __wrap_adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file,
                         uint32_t line) {
  ++allocations;
  return __real_adMalloc(owner, sizeBytes, block, file, line);
}

uint32_t __wrap_adMallocPolicy(void* owner, uint64_t sizeBytes, void** block, uint8_t policy,
                               const char* file, uint32_t line) {
  ++allocations;
  return __real_adMallocPolicy(owner, sizeBytes, block, policy, file, line);
}

uint32_t __wrap_adFree(void* block, const char* file, uint32_t line) {
  ++frees;
  return __real_adFree(block, file, line);
}

}  // extern "C"

struct kiv::test::BlockCount::Patches {};

#endif

namespace kiv::test {

BlockCount::BlockCount() {
  allocations = 0;
  frees = 0;
  patches_ = std::make_unique<Patches>();
}

BlockCount::~BlockCount() = default;

uint64_t BlockCount::allocated() const { return allocations; }

uint64_t BlockCount::freed() const { return frees; }

}  // namespace kiv::test
