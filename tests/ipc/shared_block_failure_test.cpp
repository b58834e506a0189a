// The arguments that named shared memory blocks pass to the system, and their statuses, outputs and
// leaks when the system's calls fail.
#include <gtest/gtest.h>

#include <cstdint>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/os_errors.h"

namespace {

using kiv::test::Context;
using kiv::test::ScriptedImport;

constexpr uint32_t kExists = kiv::test::kOsNameExists;
constexpr uint32_t kAccessDenied = 5;
constexpr uint32_t kNoMemory = 8;
constexpr uint32_t kCreate = 8;
constexpr uint32_t kExclusive = 16;
constexpr uintptr_t kMade = 100;
constexpr uintptr_t kOpened = 200;
constexpr uintptr_t kView = 300;
constexpr char kName[] = "asked";

uint32_t Low(uintptr_t word) { return static_cast<uint32_t>(word); }
KivHandle Handle(uintptr_t value) { return reinterpret_cast<KivHandle>(value); }

// The system's calls return made-up handles.
class SharedBlockFailure : public testing::Test {
 protected:
  uint32_t Alloc(KivSdContext* ctx, uint32_t openFlags, uint32_t protectionFlags = 1) {
    mapping_ = view_ = this;
    id_ = 0;
    return KivSdSharedMemAlloc(ctx, kName, 0x89ABCDEF, openFlags, protectionFlags, &mapping_, &id_,
                               &view_);
  }

  void ExpectNothing() {
    EXPECT_EQ(mapping_, nullptr);
    EXPECT_EQ(view_, nullptr);
    EXPECT_EQ(id_, 0xFFFFFFFFu);
  }

  Context ctx_;
  KivHandle mapping_ = nullptr;
  uint32_t id_ = 0;
  void* view_ = nullptr;
  // Calls that succeed leave a last error too.
  const ScriptedImport make_{"CreateFileMappingA", {.result = kMade, .error = kExists}};
  const ScriptedImport open_{"OpenFileMappingA", {.result = kOpened, .error = kExists}};
  const ScriptedImport map_{"MapViewOfFile", {.result = kView, .error = kExists}};
  const ScriptedImport unmap_{"UnmapViewOfFile", {.result = 1, .error = kExists}};
  const ScriptedImport close_{"CloseHandle", {.result = 1, .error = kExists}};
};

// ---- Arguments of the system's calls ----

TEST_F(SharedBlockFailure, CreatesABlockInThePagingFile) {
  CHECK_OK(ctx_, Alloc(ctx_, kCreate | 2));
  ASSERT_EQ(make_.calls().size(), 1u);
  const ScriptedImport::Arguments& made = make_.calls()[0];
  EXPECT_EQ(made[0], UINTPTR_MAX);
  EXPECT_EQ(made[1], 0u);
  EXPECT_EQ(Low(made[2]), 4u);
  EXPECT_EQ(Low(made[3]), 0u);
  EXPECT_EQ(Low(made[4]), 0x89ABCDEFu);
  EXPECT_STREQ(reinterpret_cast<const char*>(made[5]), kName);
  EXPECT_TRUE(open_.calls().empty());
  ASSERT_EQ(map_.calls().size(), 1u);
  const ScriptedImport::Arguments& mapped = map_.calls()[0];
  EXPECT_EQ(mapped[0], kMade);
  EXPECT_EQ(Low(mapped[1]), 2u);
  EXPECT_EQ(Low(mapped[2]), 0u);
  EXPECT_EQ(Low(mapped[3]), 0u);
  EXPECT_EQ(mapped[4], 0x89ABCDEFu);
  EXPECT_EQ(mapping_, Handle(kMade));
  EXPECT_EQ(view_, Handle(kView));
  EXPECT_EQ(id_, 0xFFFFFFFFu);
  EXPECT_TRUE(close_.calls().empty());
}

TEST_F(SharedBlockFailure, OpensABlockWithAnInheritableHandle) {
  for (const uint32_t flags : {2u, 2u | kExclusive}) {
    CHECK_OK(ctx_, Alloc(ctx_, flags));
    EXPECT_EQ(Low(open_.calls().back()[0]), 2u);
    EXPECT_EQ(Low(open_.calls().back()[1]), 1u);
    EXPECT_STREQ(reinterpret_cast<const char*>(open_.calls().back()[2]), kName);
    EXPECT_EQ(map_.calls().back()[0], kOpened);
    EXPECT_EQ(mapping_, Handle(kOpened));
  }
  EXPECT_TRUE(make_.calls().empty());
}

TEST_F(SharedBlockFailure, TranslatesBothFlagWordsByOneRule) {
  const struct {
    uint32_t flags, value;
  } rule[] = {{0, 0},
              {1, 4},
              {2, 2},
              {4, 2},
              {3, 2},
              {5, 2},
              {6, 2},
              {7, 2},
              {0x40000000, 4},
              {0x80000000, 2},
              {0xC0000000, 4},
              {0x40000001, 4},
              {0x40000002, 6},
              {0x80000001, 6},
              {0x80000004, 2},
              {0xC0000001, 4},
              {0xC0000002, 6},
              {0x20000000, 0x8000000},
              {0x10000000, 0x4000000},
              {0x30000000, 0x8000000},
              {0x30000001, 0x8000004},
              {0x50000002, 0x4000006},
              {0xF0000001, 0x8000004},
              {0x0FFFFFE0, 0}};
  for (const auto& [flags, value] : rule) {
    SCOPED_TRACE(flags);
    CHECK_OK(ctx_, Alloc(ctx_, flags & ~kCreate, 0));
    EXPECT_EQ(Low(open_.calls().back()[0]), value);
    EXPECT_EQ(Low(map_.calls().back()[1]), value);
    CHECK_OK(ctx_, Alloc(ctx_, (flags & ~kExclusive) | kCreate, 0));
    EXPECT_EQ(Low(map_.calls().back()[1]), value);
    CHECK_OK(ctx_, Alloc(ctx_, kCreate, flags));
    EXPECT_EQ(Low(make_.calls().back()[2]), value);
    EXPECT_EQ(Low(map_.calls().back()[1]), 0u);
  }
}

// ---- Making and opening ----

TEST_F(SharedBlockFailure, OpensABlockThatCannotBeMadeBecauseItExists) {
  const ScriptedImport make("CreateFileMappingA", {.result = 0, .error = kExists});
  CHECK_OK(ctx_, Alloc(ctx_, kCreate | 2));
  EXPECT_EQ(mapping_, Handle(kOpened));
  EXPECT_EQ(open_.calls().size(), 1u);
  CHECK_OUTCOME(ctx_, Alloc(ctx_, kCreate | kExclusive | 2), KIV_ST_SHARED_MEM_ALLOC, kExists);
  ExpectNothing();
  EXPECT_EQ(open_.calls().size(), 1u);
  EXPECT_EQ(map_.calls().size(), 1u);
}

TEST_F(SharedBlockFailure, UsesAnExistingBlockThatTheSystemReturns) {
  CHECK_OK(ctx_, Alloc(ctx_, kCreate | kExclusive | 2));
  EXPECT_EQ(mapping_, Handle(kMade));
}

TEST_F(SharedBlockFailure, ReportsABlockThatCannotBeMadeOrOpened) {
  const ScriptedImport make("CreateFileMappingA", {.result = 0, .error = kAccessDenied});
  const ScriptedImport open("OpenFileMappingA", {.result = 0, .error = kNoMemory});
  CHECK_OUTCOME(ctx_, Alloc(ctx_, kCreate | 2), KIV_ST_SHARED_MEM_ALLOC, kAccessDenied);
  ExpectNothing();
  CHECK_OUTCOME(ctx_, Alloc(ctx_, kCreate | kExclusive | 2), KIV_ST_SHARED_MEM_ALLOC,
                kAccessDenied);
  EXPECT_TRUE(open.calls().empty());
  CHECK_OUTCOME(ctx_, Alloc(ctx_, 2), KIV_ST_SHARED_MEM_ALLOC, kNoMemory);
  ExpectNothing();
  EXPECT_EQ(Alloc(nullptr, 2), KIV_ST_SHARED_MEM_ALLOC);
  EXPECT_TRUE(map_.calls().empty());
  EXPECT_TRUE(close_.calls().empty());
}

TEST_F(SharedBlockFailure, ReportsAFailedOpenOfABlockThatCannotBeMadeBecauseItExists) {
  const ScriptedImport make("CreateFileMappingA", {.result = 0, .error = kExists});
  const ScriptedImport open("OpenFileMappingA", {.result = 0, .error = kAccessDenied});
  CHECK_OUTCOME(ctx_, Alloc(ctx_, kCreate | 2), KIV_ST_SHARED_MEM_ALLOC, kAccessDenied);
}

TEST_F(SharedBlockFailure, GoesOnAfterAFailureWithoutAnOsError) {
  const ScriptedImport make("CreateFileMappingA", {.result = 0, .error = 0});
  const ScriptedImport open("OpenFileMappingA", {.result = 0, .error = 0});
  const ScriptedImport map("MapViewOfFile", {.result = 0, .error = kAccessDenied});
  for (const uint32_t flags : {kCreate | 2u, 2u}) {
    CHECK_OUTCOME(ctx_, Alloc(ctx_, flags), KIV_ST_SHARED_MEM_ALLOC, kAccessDenied);
    EXPECT_EQ(map.calls().back()[0], 0u);
    ExpectNothing();
  }
}

// ---- Mapping ----

TEST_F(SharedBlockFailure, ClosesABlockThatCannotBeMapped) {
  const ScriptedImport map("MapViewOfFile", {.result = 0, .error = kNoMemory});
  const ScriptedImport close("CloseHandle", {.result = 0, .error = kAccessDenied});
  CHECK_OUTCOME(ctx_, Alloc(ctx_, kCreate | 2), KIV_ST_SHARED_MEM_ALLOC, kNoMemory);
  ExpectNothing();
  CHECK_OUTCOME(ctx_, Alloc(ctx_, 2), KIV_ST_SHARED_MEM_ALLOC, kNoMemory);
  ASSERT_EQ(close.calls().size(), 2u);
  EXPECT_EQ(close.calls()[0][0], kMade);
  EXPECT_EQ(close.calls()[1][0], kOpened);
}

TEST_F(SharedBlockFailure, ReportsAMappingThatFailsWithoutAnOsErrorAsSuccess) {
  const ScriptedImport map("MapViewOfFile", {.result = 0, .error = 0});
  CHECK_OK(ctx_, Alloc(ctx_, kCreate | 2));
  ExpectNothing();
  EXPECT_EQ(close_.calls().size(), 1u);
}

// ---- Freeing ----

TEST_F(SharedBlockFailure, FreesInTwoStepsAndReportsTheLastError) {
  const struct {
    uintptr_t unmaps, closes;
    uint32_t unmapError, closeError, status, error;
  } cases[] = {{1, 1, kNoMemory, kAccessDenied, 0, 0},
               {0, 1, kNoMemory, kAccessDenied, KIV_ST_SHARED_MEM_FREE, kNoMemory},
               {1, 0, kNoMemory, kAccessDenied, KIV_ST_SHARED_MEM_FREE, kAccessDenied},
               {0, 0, kNoMemory, kAccessDenied, KIV_ST_SHARED_MEM_FREE, kAccessDenied},
               {0, 1, 0, 0, KIV_ST_SHARED_MEM_FREE, 0},
               {1, 0, 0, 0, KIV_ST_SHARED_MEM_FREE, 0}};
  for (const auto& now : cases) {
    const ScriptedImport unmap("UnmapViewOfFile", {.result = now.unmaps, .error = now.unmapError});
    const ScriptedImport close("CloseHandle", {.result = now.closes, .error = now.closeError});
    CHECK_OUTCOME(ctx_, KivSdSharedMemFree(ctx_, Handle(kMade), Handle(kView)), now.status,
                  now.error);
    ASSERT_EQ(unmap.calls().size(), 1u);
    EXPECT_EQ(unmap.calls()[0][0], kView);
    ASSERT_EQ(close.calls().size(), 1u);
    EXPECT_EQ(close.calls()[0][0], kMade);
  }
}

TEST_F(SharedBlockFailure, DoesNotUnmapANullView) {
  CHECK_OK(ctx_, KivSdSharedMemFree(ctx_, Handle(kMade), nullptr));
  EXPECT_TRUE(unmap_.calls().empty());
  EXPECT_EQ(close_.calls().size(), 1u);
}

}  // namespace
