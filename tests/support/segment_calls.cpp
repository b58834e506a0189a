#include "support/segment_calls.h"

#include <cstdio>
#include <cstdlib>

#include "kivsdu/memory.h"
#include "kivsdu/sharedmem.h"

namespace kiv::test {
namespace {

SegmentCalls* answering = nullptr;

[[noreturn]] void NotExpected(const char* call) {
  std::fprintf(stderr, "the test does not override %s\n", call);
  std::abort();
}

}  // namespace

SegmentCalls::SegmentCalls() { answering = this; }
SegmentCalls::~SegmentCalls() { answering = nullptr; }

uint32_t SegmentCalls::CreateSet(KivSdContext*, const char*, uint16_t, uint64_t, KivSdShSemSet**) {
  NotExpected("CreateSet");
}
uint32_t SegmentCalls::CloseSet(KivSdContext*, KivSdShSemSet*) { NotExpected("CloseSet"); }
uint32_t SegmentCalls::AllocArea(KivSdContext*, const char*, uint32_t, uint32_t, uint32_t,
                                 KivHandle*, uint32_t*, void**) {
  NotExpected("AllocArea");
}
uint32_t SegmentCalls::FreeArea(KivSdContext*, KivHandle, void*) { NotExpected("FreeArea"); }
uint32_t SegmentCalls::Alloc(KivSdContext*, uint32_t, void**, const char*, uint32_t) {
  NotExpected("Alloc");
}
uint32_t SegmentCalls::Free(KivSdContext*, void*, const char*, uint32_t) { NotExpected("Free"); }

}  // namespace kiv::test

using kiv::test::answering;

uint32_t KivSdShSemSetRequest(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set,
                              uint32_t timeoutMs) {
  return answering->Request(ctx, index, set, timeoutMs);
}

uint32_t KivSdShSemSetClear(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set) {
  return answering->Clear(ctx, index, set);
}

uint32_t KivSdShSemSetCreate(KivSdContext* ctx, const char* name, uint16_t count, uint64_t ignored,
                             const int32_t*, const int32_t*, KivSdShSemSet** set) {
  return answering->CreateSet(ctx, name, count, ignored, set);
}

uint32_t KivSdShSemSetClose(KivSdContext* ctx, KivSdShSemSet* set) {
  return answering->CloseSet(ctx, set);
}

uint32_t KivSdSharedMemAlloc(KivSdContext* ctx, const char* name, uint32_t sizeBytes,
                             uint32_t openFlags, uint32_t protectionFlags, KivHandle* mapping,
                             uint32_t* mappingId, void** view) {
  return answering->AllocArea(ctx, name, sizeBytes, openFlags, protectionFlags, mapping, mappingId,
                              view);
}

uint32_t KivSdSharedMemFree(KivSdContext* ctx, KivHandle mapping, void* view) {
  return answering->FreeArea(ctx, mapping, view);
}

uint32_t KivSdMemAlloc(KivSdContext* ctx, uint64_t, uint32_t sizeBytes, void** out,
                       const char* file, uint32_t line) {
  return answering->Alloc(ctx, sizeBytes, out, file, line);
}

uint32_t KivSdMemFree(KivSdContext* ctx, void* block, const char* file, uint32_t line) {
  return answering->Free(ctx, block, file, line);
}
