// Fault loops of blocks, pages, memory stacks and thread caches, in plain mode.
#include <cerrno>

#include "faults/fault_loop.h"
#include "kivsdu/kivsdu.h"

namespace {

using kiv::test::FaultLoop;
using kiv::test::FaultOutcome;
using kiv::test::FaultRun;
using kiv::test::FaultScenario;
using kiv::test::NameOfScenario;
using kiv::test::Recording;

constexpr char kFile[] = "memory_faults";
constexpr uint32_t kBytes = 1000;
constexpr uint32_t kPages = 2;

// ---- Blocks ----

void Allocate(FaultRun& run) {
  void* block = nullptr;
  const uint32_t status = run.Call(
      [&](KivSdContext* ctx) { return KivSdMemAlloc(ctx, 0, kBytes, &block, kFile, __LINE__); });
  if (status == KIV_ST_OK) KivSdMemFree(nullptr, block, kFile, __LINE__);
}
void Reallocate(FaultRun& run) {
  void* block = nullptr;
  EXPECT_EQ(KivSdMemAlloc(nullptr, 0, kBytes, &block, kFile, __LINE__), KIV_ST_OK);
  void* moved = nullptr;
  const uint32_t status = run.Call([&](KivSdContext* ctx) {
    return KivSdMemRealloc(ctx, 2 * kBytes, block, &moved, kFile, __LINE__);
  });
  KivSdMemFree(nullptr, status == KIV_ST_OK ? moved : block, kFile, __LINE__);
}
void AllocateOfManager(FaultRun& run) {
  void* block = nullptr;
  const uint32_t status =
      run.Call([&](KivSdContext*) { return adMalloc(nullptr, kBytes, &block, kFile, __LINE__); });
  if (status == KIV_ST_OK) adFree(block, kFile, __LINE__);
}
void AllocateZeroed(FaultRun& run) {
  void* block = nullptr;
  const uint32_t status =
      run.Call([&](KivSdContext*) { return adCalloc(nullptr, 10, kBytes, &block, 0); });
  if (status == KIV_ST_OK) adFree(block, kFile, __LINE__);
}
void AllocateAligned(FaultRun& run) {
  void* block = nullptr;
  const uint32_t status = run.Call(
      [&](KivSdContext*) { return adMallocAligned(nullptr, 0, kBytes, &block, kFile, __LINE__); });
  if (status == KIV_ST_OK) adFreeAligned(block, 1);
}
void ReallocateOfManager(FaultRun& run) {
  void* block = nullptr;
  EXPECT_EQ(adMalloc(nullptr, kBytes, &block, kFile, __LINE__), KIV_ST_OK);
  void* moved = nullptr;
  const uint32_t status = run.Call([&](KivSdContext*) {
    return adRealloc(nullptr, 2 * kBytes, block, &moved, kFile, __LINE__);
  });
  adFree(status == KIV_ST_OK ? moved : block, kFile, __LINE__);
}
void AllocateOnNode(FaultRun& run) {
  void* block = nullptr;
  uint64_t size = 0;
  const uint32_t status =
      run.Call([&](KivSdContext*) { return adMallocOnNode(nullptr, kBytes, &size, &block); });
  if (status == KIV_ST_OK) adFreeOnNode(0, 0, block);
}
void DuplicateText(FaultRun& run) {
  char* copy = nullptr;
  run.Call([&](KivSdContext*) {
    copy = adStrDup("text", kFile, __LINE__);
    return copy != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
  });
  if (copy != nullptr) adFree(copy, kFile, __LINE__);
}

void AllocateByPolicy(FaultRun& run) {
  void* block = nullptr;
  const uint32_t status = run.Call([&](KivSdContext* ctx) {
    return KivSdMemAllocUsingPolicy(ctx, 0, kBytes, &block, AD_POLICY_MANDATORY, kFile, __LINE__);
  });
  if (status == KIV_ST_OK) KivSdMemFree(nullptr, block, kFile, __LINE__);
}
void AllocateByPolicyOfManager(FaultRun& run) {
  void* block = nullptr;
  const uint32_t status = run.Call([&](KivSdContext*) {
    return adMallocPolicy(nullptr, kBytes, &block, AD_POLICY_FULL, kFile, __LINE__);
  });
  if (status == KIV_ST_OK) adFree(block, kFile, __LINE__);
}

// ---- Policy blocks, and the thread's cache ----

// The switch for policy headers, on for the object's lifetime.
struct PolicyHeaders {
  PolicyHeaders() { KivSdSetMemoryManager(1); }
  ~PolicyHeaders() { KivSdSetMemoryManager(0); }
};

// A cache of this thread, where there is memory for one.
struct ThreadCache : PolicyHeaders {
  ThreadCache() { EXPECT_EQ(adCreateThreadAlloc(), KIV_ST_OK); }
  ~ThreadCache() { EXPECT_EQ(adDestroyThreadAlloc(), KIV_ST_OK); }
};

void AllocateWithHeader(FaultRun& run) {
  const PolicyHeaders headers;
  AllocateOfManager(run);
}
void ReallocateWithHeader(FaultRun& run) {
  const PolicyHeaders headers;
  ReallocateOfManager(run);
}
void AllocateFromCache(FaultRun& run) {
  const ThreadCache cache;
  AllocateOfManager(run);
}
void ReallocateFromCache(FaultRun& run) {
  const ThreadCache cache;
  ReallocateOfManager(run);
}
void MakeCache(FaultRun& run) {
  const PolicyHeaders headers;
  run.Call([](KivSdContext*) { return adCreateThreadAlloc(); });
  EXPECT_EQ(adDestroyThreadAlloc(), KIV_ST_OK);
}

// ---- Pages ----

using AllocatePages = uint32_t (*)(KivSdContext*, uint32_t, void**);
using FreePages = uint32_t (*)(KivSdContext*, void*);
using ReallocatePages = uint32_t (*)(KivSdContext*, uint32_t, uint32_t, void**);

template <AllocatePages allocate, FreePages release>
void TakePages(FaultRun& run) {
  void* pages = nullptr;
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return allocate(ctx, kPages, &pages); });
  if (status == KIV_ST_OK) release(nullptr, pages);
}
template <AllocatePages allocate, FreePages release>
void ReturnPages(FaultRun& run) {
  void* pages = nullptr;
  EXPECT_EQ(allocate(nullptr, kPages, &pages), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) { return release(ctx, pages); });
}
template <AllocatePages allocate, FreePages release, ReallocatePages reallocate>
void GrowPages(FaultRun& run) {
  void* pages = nullptr;
  EXPECT_EQ(allocate(nullptr, kPages, &pages), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) { return reallocate(ctx, kPages, 2 * kPages, &pages); });
  release(nullptr, pages);
}

void LockPages(FaultRun& run) {
  void* pages = nullptr;
  EXPECT_EQ(KivSdAlignedMemAlloc(nullptr, kPages, &pages), KIV_ST_OK);
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivSdMemLock(ctx, kPages, pages); });
  if (status == KIV_ST_OK) KivSdMemUnlock(nullptr, kPages, pages);
  KivSdAlignedMemFree(nullptr, pages);
}
void UnlockPages(FaultRun& run) {
  void* pages = nullptr;
  EXPECT_EQ(KivSdAlignedMemAlloc(nullptr, kPages, &pages), KIV_ST_OK);
  EXPECT_EQ(KivSdMemLock(nullptr, kPages, pages), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) { return KivSdMemUnlock(ctx, kPages, pages); });
  KivSdAlignedMemFree(nullptr, pages);
}

// ---- Memory stacks ----

void CreateStack(FaultRun& run) {
  KivSdMemStack* stack = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdMemStackCreate(ctx, &stack, 8, kBytes); });
  if (stack != nullptr) KivSdMemStackDelete(nullptr, stack);  // an incomplete one too
}
void PushOnStack(FaultRun& run) {
  KivSdMemStack* stack = nullptr;
  EXPECT_EQ(KivSdMemStackCreate(nullptr, &stack, 8, kBytes), KIV_ST_OK);
  void* piece = nullptr;
  run.Call(
      [&](KivSdContext* ctx) { return KivSdMemStackAllocAndPush(ctx, stack, 3 * kBytes, &piece); });
  KivSdMemStackDelete(nullptr, stack);
}

const std::vector<FaultOutcome> kNoMemory = {{"malloc", KIV_ST_OUT_OF_MEMORY},
                                             {"realloc", KIV_ST_OUT_OF_MEMORY}};

const FaultScenario kScenarios[] = {
    {"KivSdMemAlloc", Allocate, kNoMemory},
    {"KivSdMemRealloc", Reallocate, kNoMemory},
    {"adMalloc", AllocateOfManager, kNoMemory, {}, Recording::kNothing},
    {"KivSdMemAllocUsingPolicy", AllocateByPolicy, kNoMemory},
    {"adMallocPolicy", AllocateByPolicyOfManager, kNoMemory, {}, Recording::kNothing},
    {"adCalloc", AllocateZeroed, kNoMemory, {}, Recording::kNothing},
    {"adMallocAligned", AllocateAligned, kNoMemory, {}, Recording::kNothing},
    {"adStrDup", DuplicateText, kNoMemory, {}, Recording::kNothing},
    {"adRealloc", ReallocateOfManager, kNoMemory, {}, Recording::kNothing},
    {"adMallocOnNode", AllocateOnNode, kNoMemory, {}, Recording::kNothing},
    {"adMalloc_header", AllocateWithHeader, kNoMemory, {}, Recording::kNothing},
    {"adRealloc_header", ReallocateWithHeader, kNoMemory, {}, Recording::kNothing},
    {"adMalloc_cache", AllocateFromCache, kNoMemory, {}, Recording::kNothing},
    {"adRealloc_cache", ReallocateFromCache, kNoMemory, {}, Recording::kNothing},
    {"adCreateThreadAlloc", MakeCache, {{"malloc", KIV_ST_OK}}, {}, Recording::kNothing},
    {"KivSdAlignedMemAlloc",
     TakePages<KivSdAlignedMemAlloc, KivSdAlignedMemFree>,
     {{"VirtualAlloc", KIV_ST_ALIGNED_COMMIT}, {"malloc", KIV_ST_ALIGNED_COMMIT}}},
    {"KivSdAlignedMemFree",
     ReturnPages<KivSdAlignedMemAlloc, KivSdAlignedMemFree>,
     {{"VirtualFree", KIV_ST_ALIGNED_RELEASE}}},
    {"KivSdAlignedMemRealloc",
     GrowPages<KivSdAlignedMemAlloc, KivSdAlignedMemFree, KivSdAlignedMemRealloc>,
     {{"VirtualAlloc", KIV_ST_ALIGNED_COMMIT},
      {"VirtualFree", KIV_ST_ALIGNED_RELEASE},
      {"malloc", KIV_ST_ALIGNED_COMMIT}}},
    {"KivSdPhysMemAlloc",
     TakePages<KivSdPhysMemAlloc, KivSdPhysMemFree>,
     {{"VirtualAlloc", KIV_ST_PAGE_COMMIT},
      {"VirtualLock", KIV_ST_PAGE_LOCK},
      {"VirtualLock", KIV_ST_WORKING_SET_QUOTA, ENOMEM},
      {"malloc", KIV_ST_PAGE_COMMIT}}},
    {"KivSdPhysMemFree",
     ReturnPages<KivSdPhysMemAlloc, KivSdPhysMemFree>,
     {{"VirtualUnlock", KIV_ST_PAGE_UNLOCK}, {"VirtualFree", KIV_ST_PAGE_RELEASE}}},
    {"KivSdPhysMemRealloc",
     GrowPages<KivSdPhysMemAlloc, KivSdPhysMemFree, KivSdPhysMemRealloc>,
     {{"VirtualAlloc", KIV_ST_PAGE_COMMIT},
      {"VirtualLock", KIV_ST_PAGE_LOCK},
      {"VirtualLock", KIV_ST_WORKING_SET_QUOTA, ENOMEM},
      {"VirtualUnlock", KIV_ST_PAGE_UNLOCK},
      {"VirtualFree", KIV_ST_PAGE_RELEASE},
      {"malloc", KIV_ST_PAGE_COMMIT}}},
    {"KivSdMemLock",
     LockPages,
     {{"VirtualLock", KIV_ST_PAGE_LOCK}, {"VirtualLock", KIV_ST_WORKING_SET_QUOTA, ENOMEM}}},
    {"KivSdMemUnlock", UnlockPages, {{"VirtualUnlock", KIV_ST_PAGE_UNLOCK}}},
    {"KivSdMemStackCreate", CreateStack, kNoMemory, {}, Recording::kNoError},
    {"KivSdMemStackAllocAndPush", PushOnStack, kNoMemory, {}, Recording::kNoError},
};

INSTANTIATE_TEST_SUITE_P(Memory, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
