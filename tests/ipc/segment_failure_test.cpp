// Shared memory segments when the system or the allocator fails: the statuses, the caller's record,
// and the resources that are closed and freed.
#include <gtest/gtest.h>

#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/heap_watch.h"
#include "support/import_patch.h"

namespace {

using kiv::test::Context;
using kiv::test::HeapWatch;
using kiv::test::ScriptedImport;

constexpr uint32_t kError = 1234;
constexpr uint32_t kTimedOut = 258;
constexpr uint32_t kAbandoned = 128;
constexpr uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr uint32_t kNotGiven = 0xFFFFFFFD;
constexpr uint32_t kUntouched = 4711;
constexpr uintptr_t kSemaphore = 1000;
constexpr uintptr_t kArea = 2000;
constexpr uint32_t kOpenFlags = 8 | 2;
constexpr uint32_t kProtectionFlags = 1;
constexpr uint32_t kPagesReadWrite = 4;  // the system's words for these flags
constexpr uint32_t kViewWrite = 2;

uint32_t Low(uintptr_t word) { return static_cast<uint32_t>(word); }

// The system's calls return made-up handles. The area is a buffer of the test.
class SegmentFailure : public testing::Test {
 protected:
  void TearDown() override {
    if (list_ != nullptr) KivDeleteSharedMemSeg(nullptr, list_);
  }

  KivSharedMemSeg* Find(const char* name = "failing") {
    KivSharedMemSeg* segment = nullptr;
    EXPECT_EQ(KivFindShareMemSeg(nullptr, name, 1, &list_, 1, 1, 2, nullptr, nullptr, &segment),
              KIV_ST_OK);
    return segment;
  }

  uint32_t Create(KivSharedMemSeg* segment, const char* name = "failing") {
    uint32_t id = 0;
    return KivCreateSharedMemSeg(ctx_, name, 1, kOpenFlags, kProtectionFlags, segment, 77, &id,
                                 &view_);
  }

  KivSharedMemSeg* Make(const char* name = "failing") {
    KivSharedMemSeg* segment = Find(name);
    EXPECT_EQ(Create(segment, name), KIV_ST_OK);
    EXPECT_EQ(KivSetSharedMemSegBuffer(nullptr, segment, area_), KIV_ST_OK);
    return segment;
  }

  Context ctx_;
  alignas(8) unsigned char area_[KIV_SEGMENT_AREA_BYTES] = {};
  void* view_ = nullptr;
  KivSharedMemSeg* list_ = nullptr;
  const ScriptedImport made_{"CreateSemaphoreA", {.result = kSemaphore}};
  const ScriptedImport block_{"CreateFileMappingA", {.result = kArea}};
  const ScriptedImport mapped_{"MapViewOfFile", {.result = kArea + 1}};
  const ScriptedImport unmapped_{"UnmapViewOfFile", {.result = 1}};
  const ScriptedImport closed_{"CloseHandle", {.result = 1}};
};

// ---- Finding and setting up ----

TEST_F(SegmentFailure, NoMemoryForADescriptorIsRecordedAndLeavesTheListUnchanged) {
  KivSharedMemSeg* first = Find();
  KivSharedMemSeg* found = first;
  uint8_t fresh = 9;
  const ScriptedImport malloc("malloc", {.result = 0, .error = kError});
  CHECK_OUTCOME(ctx_,
                KivFindShareMemSeg(ctx_, "other", 1, &list_, 1, 1, 2, &fresh, nullptr, &found),
                KIV_ST_OUT_OF_MEMORY, kError);
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(fresh, 0);
  EXPECT_EQ(list_, first);
  EXPECT_EQ(first->next, nullptr);
}

TEST_F(SegmentFailure, TheSetAndTheAreaAreCreatedWithTheSegmentsCountsAndSizes) {
  KivSharedMemSeg* segment = Find();
  ASSERT_EQ(Create(segment), KIV_ST_OK);
  ASSERT_EQ(made_.calls().size(), 21u);
  for (size_t member = 0; member < 21; ++member) {
    EXPECT_EQ(Low(made_.calls()[member][1]), member % 2 == 0 ? 1u : 0u);
    EXPECT_EQ(Low(made_.calls()[member][2]), 1u);
  }
  ASSERT_EQ(block_.calls().size(), 1u);
  EXPECT_EQ(Low(block_.calls()[0][2]), static_cast<uint32_t>(kPagesReadWrite));
  EXPECT_EQ(Low(block_.calls()[0][4]), 20480u);
  ASSERT_EQ(mapped_.calls().size(), 1u);
  EXPECT_EQ(Low(mapped_.calls()[0][1]), static_cast<uint32_t>(kViewWrite));
  EXPECT_EQ(mapped_.calls()[0][4], 20480u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(segment->mapping), kArea);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(view_), kArea + 1);
}

TEST_F(SegmentFailure, ANameOf259CharactersIsAcceptedIfTheSystemAcceptsIt) {
  KivSharedMemSeg* segment = Find();
  const std::string longest(259, 'n');
  CHECK_SILENT(ctx_, Create(segment, (longest + 'n').c_str()), KIV_ST_SEGMENT_NAME);
  EXPECT_TRUE(made_.calls().empty());
  EXPECT_EQ(Create(segment, longest.c_str()), KIV_ST_OK);
  EXPECT_EQ(std::string(segment->name), longest);
  EXPECT_EQ(made_.calls().size(), 21u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(segment->mapping), kArea);
}

TEST_F(SegmentFailure, ASemaphoreThatCannotBeMadeClosesTheOthers) {
  KivSharedMemSeg* segment = Find();
  for (const uint32_t good : {0u, 1u, 20u}) {
    const size_t closedBefore = closed_.calls().size();
    const HeapWatch heap;
    const ScriptedImport made("CreateSemaphoreA",
                              {.result = 0, .error = kError, .passFirst = good});
    CHECK_SILENT(ctx_, Create(segment), KIV_ST_SEM_CREATE);
    EXPECT_EQ(closed_.calls().size() - closedBefore, good);
    EXPECT_EQ(segment->semaphores, nullptr);
    EXPECT_EQ(heap.live(), 0u);
  }
  EXPECT_TRUE(block_.calls().empty());
}

TEST_F(SegmentFailure, NoMemoryForTheSetLeavesNoReferenceToIt) {
  KivSharedMemSeg* segment = Find();
  for (const uint32_t good : {0u, 1u}) {
    segment->semaphores = reinterpret_cast<KivSdShSemSet*>(uintptr_t{0x5A5A5A50});
    const ScriptedImport malloc("malloc", {.result = 0, .error = kError, .passFirst = good});
    CHECK_SILENT(ctx_, Create(segment), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(segment->semaphores, nullptr);
  }
  EXPECT_TRUE(block_.calls().empty());
}

TEST_F(SegmentFailure, AnAreaThatCannotBeMadeOrMappedClosesTheSet) {
  KivSharedMemSeg* segment = Find();
  for (const char* failing : {"CreateFileMappingA", "MapViewOfFile"}) {
    segment->mapping = &list_;
    const size_t closedBefore = closed_.calls().size();
    const HeapWatch heap;
    const ScriptedImport failure(failing, {.result = 0, .error = kError});
    CHECK_OUTCOME(ctx_, Create(segment), KIV_ST_SHARED_MEM_ALLOC, kError);
    EXPECT_EQ(closed_.calls().size() - closedBefore, failing[0] == 'C' ? 21u : 22u);
    EXPECT_EQ(segment->semaphores, nullptr);
    EXPECT_EQ(segment->mapping, &list_) << "the descriptor must keep its earlier area";
    EXPECT_EQ(segment->kind, 0u);
    EXPECT_EQ(heap.live(), 0u);
  }
}

// ---- Chunks ----

TEST_F(SegmentFailure, AFailedWaitEndsEveryOperationAndRecordsNothing) {
  KivSharedMemSeg* segment = Make();
  segment->takenMask = 1;
  const struct {
    uint32_t result, status;
  } waits[] = {{kTimedOut, KIV_ST_SEM_TIMEOUT},
               {kAbandoned, KIV_ST_SEM_REQUEST},
               {kWaitFailed, KIV_ST_SEM_REQUEST}};
  for (const auto& [result, status] : waits) {
    const ScriptedImport wait("WaitForSingleObject", {.result = result, .error = kError});
    const ScriptedImport release("ReleaseSemaphore", {.result = 1});
    char byte = 'a';
    uint32_t code = kUntouched;
    int32_t chunk = 4711;
    CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, segment, &chunk), status);
    CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, segment, 0), status);
    CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, segment, 0, 1, 1, 1, &byte), status);
    CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, segment, 0, 1, 0, &code, &byte), status);
    CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, segment, 0, 1, 1, &code, &byte), status);
    CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, segment, 0, &code), status);
    CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, segment, 0, 5), status);
    EXPECT_EQ(segment->writing[0].code, 5u);
    segment->writing[0].code = 0;
    EXPECT_EQ(chunk, 4711);
    EXPECT_EQ(code, kUntouched);
    EXPECT_EQ(segment->takenMask, 1u);
    EXPECT_EQ(segment->reading[0].code, 0u);
    EXPECT_TRUE(release.calls().empty());
    ASSERT_EQ(wait.calls().size(), 7u);
    for (const ScriptedImport::Arguments& call : wait.calls()) EXPECT_EQ(Low(call[1]), 77u);
  }
  EXPECT_EQ(area_[0], 0);
}

TEST_F(SegmentFailure, AFailedReleaseBlocksTheChunkOrIsReported) {
  KivSharedMemSeg* segment = Make();
  const ScriptedImport wait("WaitForSingleObject", {.result = 0});
  const ScriptedImport release("ReleaseSemaphore", {.result = 0, .error = kError});
  int32_t chunk = 4711;
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, segment, &chunk), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(chunk, 0);
  EXPECT_EQ(segment->takenMask, 1u);
  CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, segment, 0), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(segment->takenMask, 0u);
  segment->takenMask = 0x1F;
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, segment, &chunk), KIV_ST_OK);
  EXPECT_EQ(chunk, -1);
  EXPECT_EQ(release.calls().size(), 3u);

  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, segment, 0, 3, 1, 0, "abc"), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(segment->writing[0].code, kNotGiven);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, segment, 1, 5), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(segment->writing[1].code, kNotGiven);

  area_[2048 + 4] = 1;  // a message of one byte
  char byte = 'a';
  uint32_t code = 0;
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, segment, 0, 1, 0, &code, &byte), kNotGiven);
  EXPECT_EQ(code, kNotGiven);
  EXPECT_EQ(segment->reading[0].code, kNotGiven);
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, segment, 1, &code), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(code, 0u);
  area_[4096 * 2 + 2048] = 9;  // a code
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, segment, 2, 1, 0, &code, &byte), KIV_ST_OK);
  EXPECT_EQ(code, 9u);
}

// ---- Tearing down ----

TEST_F(SegmentFailure, AnAreaThatCannotBeFreedKeepsItsDescriptor) {
  const HeapWatch heap;
  KivSharedMemSeg* segment = Make();
  for (const char* failing : {"UnmapViewOfFile", "CloseHandle"}) {
    const ScriptedImport failure(failing, {.result = 0, .error = kError});
    CHECK_OUTCOME(ctx_, KivDeleteSharedMemSeg(ctx_, segment), KIV_ST_SHARED_MEM_FREE, kError);
    EXPECT_EQ(segment->semaphores, nullptr);
    EXPECT_EQ(segment->mapping, nullptr);
    ASSERT_TRUE(heap.IsLive(segment));
    EXPECT_EQ(heap.live(), 1u);
    ASSERT_EQ(Create(segment), KIV_ST_OK);
    ASSERT_EQ(KivSetSharedMemSegBuffer(nullptr, segment, area_), KIV_ST_OK);
  }
  const ScriptedImport failure("UnmapViewOfFile", {.result = 0, .error = kError});
  CHECK_OUTCOME(ctx_, KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_SHARED_MEM_FREE, kError);
  EXPECT_EQ(segment->semaphores, nullptr);
  EXPECT_EQ(segment->mapping, nullptr);
  CHECK_SILENT(ctx_, KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_OK);
  EXPECT_EQ(KivDeleteSharedMemSeg(nullptr, list_), KIV_ST_OK);
  list_ = nullptr;
}

TEST_F(SegmentFailure, AFailureCarriesOverToDescriptorsWithoutASet) {
  HeapWatch heap;
  KivSharedMemSeg* failing = Make("failing");
  KivSharedMemSeg* bare = Find("bare");
  bare->name[0] = 'b';
  KivSharedMemSeg* setless = Find("setless");
  setless->name[0] = 's';
  setless->mapping = reinterpret_cast<KivHandle>(kArea + 7);
  KivSharedMemSeg* whole = Make("whole");
  KivSharedMemSeg* last = Find("last");
  const ScriptedImport unmap("UnmapViewOfFile", {.result = 0, .error = kError, .failCount = 1});
  EXPECT_EQ(KivDeleteSharedMemSeg(ctx_, list_), KIV_ST_OK) << "the last set was closed";
  EXPECT_TRUE(heap.IsLive(failing));
  EXPECT_TRUE(heap.IsLive(bare));
  EXPECT_TRUE(heap.IsLive(setless));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(setless->mapping), kArea + 7) << "the area must stay";
  EXPECT_FALSE(heap.IsLive(whole));
  EXPECT_FALSE(heap.IsLive(last));
  EXPECT_EQ(unmap.calls().size(), 2u);

  // Links the remaining descriptors again: their links lead to freed ones.
  failing->next = bare;
  bare->next = setless;
  setless->next = nullptr;
  EXPECT_EQ(KivDeleteSharedMemSeg(nullptr, failing), KIV_ST_OK);
  EXPECT_EQ(heap.live(), 0u);
  list_ = nullptr;
}

TEST_F(SegmentFailure, TheNotMappedAddressIsPassedToTheSystemLikeAView) {
  KivSharedMemSeg* segment = Find();
  ASSERT_EQ(Create(segment), KIV_ST_OK);
  EXPECT_EQ(KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_OK);
  ASSERT_EQ(unmapped_.calls().size(), 1u);
  EXPECT_EQ(unmapped_.calls()[0][0], 0xDEADBEEFu);
  EXPECT_EQ(closed_.calls().size(), 21u + 1u) << "21 semaphores and the area, even without a view";
}

TEST_F(SegmentFailure, AnEarlierOwnersAreaIsForgottenEvenIfItCannotBeFreed) {
  KivSharedMemSeg* segment = Make();
  const ScriptedImport failure("UnmapViewOfFile", {.result = 0, .error = kError});
  KivSharedMemSeg* found = nullptr;
  uint8_t fresh = 0;
  EXPECT_EQ(KivFindShareMemSeg(ctx_, "failing", 1, &list_, 0, 1, 3, &fresh, nullptr, &found),
            KIV_ST_OK);
  EXPECT_EQ(found, segment);
  EXPECT_EQ(fresh, 1);
  EXPECT_EQ(segment->mapping, nullptr);
  EXPECT_EQ(segment->ownerStamp2, 3u);
  ASSERT_EQ(failure.calls().size(), 1u);
  EXPECT_EQ(failure.calls()[0][0], reinterpret_cast<uintptr_t>(area_));
}

}  // namespace
