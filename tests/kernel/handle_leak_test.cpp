// Creating and closing objects many times leaks no handle.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/open_handles.h"
#include "support/temporary_folder.h"
#include "support/waiting.h"

namespace {

using kiv::test::OpenHandles;
using kiv::test::TemporaryFolder;
using kiv::test::UniqueName;

constexpr int kRounds = 2'000;

// The system's words that calls pass on.
constexpr uint32_t kDuplex = 3;
constexpr uint32_t kPipeWaits = 0;
constexpr uint32_t kGenericRead = 0x80000000;
constexpr uint32_t kOpenExisting = 3;
// Runs `round` many times and returns the number of handles left open. The first run is not
// counted, because the system and the runtimes open some handles when they are first used.
size_t LeftOpenBy(const std::function<void()>& round, int rounds = kRounds) {
  round();
  const size_t before = OpenHandles();
  for (int i = 0; i < rounds; ++i) round();
  return OpenHandles() - before;
}

TEST(OpenHandles, CountsEveryOpenHandle) {
  constexpr size_t kMade = 4'000;
  const size_t before = OpenHandles();
  std::vector<KivHandle> made(kMade);
  for (KivHandle& handle : made) ASSERT_EQ(KivSdEventCreate(nullptr, &handle), KIV_ST_OK);
  EXPECT_EQ(OpenHandles() - before, kMade);
  for (KivHandle& handle : made) EXPECT_EQ(KivSdEventClose(nullptr, &handle), KIV_ST_OK);
  EXPECT_EQ(OpenHandles(), before);
}

TEST(HandleLeak, SemaphoresLeakNoHandle) {
  const std::string name = UniqueName("leak");
  EXPECT_EQ(LeftOpenBy([&] {
              KivHandle made = nullptr;
              KivHandle opened = nullptr;
              ASSERT_EQ(KivSdCntSemCreate(nullptr, name.c_str(), 0, 1, &made), KIV_ST_OK);
              ASSERT_EQ(KivSdCntSemOpen(nullptr, name.c_str(), &opened), KIV_ST_OK);
              ASSERT_EQ(KivSdCntSemClose(nullptr, &opened), KIV_ST_OK);
              ASSERT_EQ(KivSdCntSemClose(nullptr, &made), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, SemaphoreSetsLeakNoHandle) {
  constexpr int32_t kInitial[] = {0, 1, 2};
  constexpr int32_t kMaximum[] = {1, 2, 3};
  const std::string name = UniqueName("leak");
  EXPECT_EQ(LeftOpenBy([&] {
              KivSdShSemSet* set = nullptr;
              ASSERT_EQ(KivSdShSemSetCreate(nullptr, name.c_str(), 3, 0, kInitial, kMaximum, &set),
                        KIV_ST_OK);
              ASSERT_EQ(KivSdShSemSetClose(nullptr, set), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, PartlyCreatedSemaphoreSetsLeakNoHandle) {
  constexpr int32_t kInitial[] = {0, 1, 9};
  constexpr int32_t kMaximum[] = {1, 2, 3};
  const std::string name = UniqueName("leak");
  EXPECT_EQ(LeftOpenBy([&] {
              KivSdShSemSet* set = nullptr;
              ASSERT_EQ(KivSdShSemSetCreate(nullptr, name.c_str(), 3, 0, kInitial, kMaximum, &set),
                        KIV_ST_SEM_CREATE);
            }),
            0u);
}

TEST(HandleLeak, MutexesLeakNoHandle) {
  const std::string name = UniqueName("leak");
  EXPECT_EQ(LeftOpenBy([&] {
              KivHandle made = nullptr;
              KivHandle opened = nullptr;
              ASSERT_EQ(KivSdMutexCreate(nullptr, name.c_str(), &made), KIV_ST_OK);
              ASSERT_EQ(KivSdMutexOpen(nullptr, name.c_str(), &opened), KIV_ST_OK);
              ASSERT_EQ(KivSdMutexRequest(nullptr, &opened, 0), KIV_ST_OK);
              ASSERT_EQ(KivSdMutexClear(nullptr, &opened), KIV_ST_OK);
              ASSERT_EQ(KivSdMutexClose(nullptr, &opened), KIV_ST_OK);
              ASSERT_EQ(KivSdMutexClose(nullptr, &made), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, EventsLeakNoHandle) {
  EXPECT_EQ(LeftOpenBy([] {
              KivHandle gate = nullptr;
              KivHandle standard = nullptr;
              KivHandle counting = nullptr;
              ASSERT_EQ(KivSdEventCreate(nullptr, &gate), KIV_ST_OK);
              ASSERT_EQ(KivSdStdEventCreate(nullptr, &standard), KIV_ST_OK);
              ASSERT_EQ(KivSdCountingEventCreate(nullptr, &counting, 1), KIV_ST_OK);
              ASSERT_EQ(KivSdEventClose(nullptr, &gate), KIV_ST_OK);
              ASSERT_EQ(KivSdStdEventClose(nullptr, &standard), KIV_ST_OK);
              ASSERT_EQ(KivSdCountingEventClose(nullptr, &counting), KIV_ST_OK);
            }),
            0u);
}

uint32_t DoNothing(void*) { return 0; }

TEST(HandleLeak, ThreadsLeakNoHandle) {
  EXPECT_EQ(LeftOpenBy([] {
              uint32_t id = 0;
              KivHandle thread = nullptr;
              ASSERT_EQ(KivSdThreadCreate(nullptr, DoNothing, 0, 0, nullptr, &id, &thread),
                        KIV_ST_OK);
              ASSERT_EQ(KivSdThreadJoin(nullptr, &thread), KIV_ST_OK);
              ASSERT_EQ(KivSdThreadDelete(nullptr, &thread), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, HandlesOfTheCallingThreadLeakNoHandle) {
  EXPECT_EQ(LeftOpenBy([] {
              KivHandle self = nullptr;
              ASSERT_EQ(KivSdThreadHandleGet(nullptr, &self), KIV_ST_OK);
              ASSERT_EQ(KivSdThreadDelete(nullptr, &self), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, AnonymousPipesLeakNoHandle) {
  EXPECT_EQ(LeftOpenBy([] {
              KivHandle readEnd = nullptr;
              KivHandle writeEnd = nullptr;
              ASSERT_EQ(KivSdPipeCreate(nullptr, &readEnd, &writeEnd, 0), KIV_ST_OK);
              ASSERT_EQ(KivSdPipeClose(nullptr, &readEnd), KIV_ST_OK);
              ASSERT_EQ(KivSdPipeClose(nullptr, &writeEnd), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, NamedPipesLeakNoHandle) {
  const std::string name = UniqueName("leak");
  EXPECT_EQ(LeftOpenBy([&] {
              KivHandle server = nullptr;
              KivHandle client = nullptr;
              ASSERT_EQ(KivSdNamedPipeCreate(nullptr, name.c_str(), &server, kDuplex, kPipeWaits, 1,
                                             512, 512, 0),
                        KIV_ST_OK);
              ASSERT_EQ(KivSdNamedPipeOpen(nullptr, "local", name.c_str(), &client, kGenericRead, 0,
                                           kOpenExisting, 0),
                        KIV_ST_OK);
              ASSERT_EQ(KivSdPipeClose(nullptr, &client), KIV_ST_OK);
              ASSERT_EQ(KivSdPipeClose(nullptr, &server), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, DirectFilesLeakNoHandle) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("blocks");
  EXPECT_EQ(LeftOpenBy([&] {
              uint32_t file = 0;
              ASSERT_EQ(KivSdDirectIOFileCreate(nullptr, path.c_str()), KIV_ST_OK);
              ASSERT_EQ(KivSdDirectIOFileOpen(nullptr, path.c_str(), kGenericRead, 0, kOpenExisting,
                                              nullptr, 0, &file),
                        KIV_ST_OK);
              ASSERT_EQ(KivSdDirectIOFileClose(nullptr, file), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, CompletionRecordsLeakNoHandle) {
  KivSdNoWaitCb records[2] = {};
  EXPECT_EQ(LeftOpenBy([&] {
              ASSERT_EQ(KivSdDirectIONoWaitCbsInit(nullptr, records, 2), KIV_ST_OK);
              ASSERT_EQ(KivSdDirectIONoWaitCbsTerm(nullptr, records, 2), KIV_ST_OK);
            }),
            0u);
}

TEST(HandleLeak, SharedBlocksLeakNoHandle) {
  const std::string name = UniqueName("leak");
  EXPECT_EQ(LeftOpenBy([&] {
              KivHandle mapping = nullptr;
              uint32_t id = 0;
              void* view = nullptr;
              ASSERT_EQ(
                  KivSdSharedMemAlloc(nullptr, name.c_str(), 100, 8 | 2, 1, &mapping, &id, &view),
                  KIV_ST_OK);
              ASSERT_EQ(KivSdSharedMemFree(nullptr, mapping, view), KIV_ST_OK);
              ASSERT_EQ(KivSdSharedMemAlloc(nullptr, name.c_str(), 100, 2, 1, &mapping, &id, &view),
                        KIV_ST_SHARED_MEM_ALLOC);
            }),
            0u);
}

// Each segment has 22 handles.
TEST(HandleLeak, SegmentsLeakNoHandle) {
  constexpr int kSegments = 1000;
  const std::string name = UniqueName("leak");
  EXPECT_EQ(LeftOpenBy(
                [&] {
                  KivSharedMemSeg* list = nullptr;
                  KivSharedMemSeg* segment = nullptr;
                  uint32_t id = 0;
                  void* view = nullptr;
                  ASSERT_EQ(KivFindShareMemSeg(nullptr, name.c_str(), 1, &list, 1, 1, 2, nullptr,
                                               nullptr, &segment),
                            KIV_ST_OK);
                  ASSERT_EQ(KivCreateSharedMemSeg(nullptr, name.c_str(), 1, 8 | 2, 1, segment, 0,
                                                  &id, &view),
                            KIV_ST_OK);
                  ASSERT_EQ(KivSetSharedMemSegBuffer(nullptr, segment, view), KIV_ST_OK);
                  ASSERT_EQ(KivDeleteSharedMemSeg(nullptr, list), KIV_ST_OK);
                },
                kSegments),
            0u);
}

}  // namespace
