// Starting and stopping the host: lock design and memory mode.
#include "host/host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

#include "kivsdu/memusage.h"
#include "kivsdu/settings.h"
#include "kivsdu/shortheap.h"
#include "kivsdu/spinlock.h"
#include "kivsdu/system.h"
#include "memory_modes.h"
#include "support/import_patch.h"
#include "support/process.h"

namespace cellhost {
namespace {

using kiv::test::ConfigurationFile;
using kiv::test::OneProcessor;
using kiv::test::SettingsNow;

constexpr uint64_t kPattern = 0xA5A5A5A5A5A5A5A5;
constexpr size_t kTicketWords = 3;

// The number of words of its storage that a lightweight spinlock uses. It differs between the two
// designs.
size_t WordsOfALock() {
  KivSdLWSpinlock lock;
  std::ranges::fill(lock.opaque, kPattern);
  KivSdLWSpinlockInit(&lock);
  return static_cast<size_t>(std::ranges::find(lock.opaque, kPattern) - std::begin(lock.opaque));
}

TEST(Host, UsesTicketLocks) {
  IN_FRESH_PROCESS([] {
    EXPECT_TRUE(StartHost(LockDesign::kTicket, MemoryUse::kPlain));
    EXPECT_EQ(WordsOfALock(), kTicketWords);
    StopHost();
  });
}

TEST(Host, UsesTestAndSetLocks) {
  IN_FRESH_PROCESS([] {
    EXPECT_TRUE(StartHost(LockDesign::kTestAndSet, MemoryUse::kPlain));
    EXPECT_EQ(WordsOfALock(), std::size(KivSdLWSpinlock{}.opaque));
    StopHost();
  });
}

constexpr uint64_t kLimitBytes = 64 << 20;

// Whether requests get short heaps.
bool HasShortHeaps() {
  AdShortHeapOwner owner = {};
  adMemShortHeapInit(&owner);
  const bool has = adMemShortCheckStatus(&owner) != 0;
  adMemShortHeapTerm(&owner);
  return has;
}

TEST(Host, HasHeapsFromItsStartToItsEnd) {
  IN_FRESH_PROCESS([] {
    const OneProcessor oneProcessor;
    const ConfigurationFile file(test::kHeaps.configuration);
    EXPECT_TRUE(StartHost(LockDesign::kTicket, MemoryUse::kAsConfigured));
    EXPECT_EQ(WordsOfALock(), kTicketWords);
    EXPECT_EQ(SettingsNow()[0], kLimitBytes);
    EXPECT_EQ(SettingsNow()[1], 4u);
    EXPECT_TRUE(HasShortHeaps());
    StopHost();
    EXPECT_FALSE(HasShortHeaps());
  });
}

// Records the settings when the memory manager reads its configuration, which is its first action.
struct SetBefore {
  static FILE* Open(const char* path, const char* mode) {
    before = {.name = KivSdAppFolderName(),
              .failover = KivSdIsFailoverMode(),
              .guarded = false,
              .attached = false,
              .wordsOfALock = WordsOfALock()};
    const uint32_t checks = Host().leaseChecks;
    KivSdGetLeaseGuard();
    before.guarded = Host().leaseChecks == checks + 1;
    const uint32_t threads = Host().threads;
    KivSdUkrThreadAttach(0, 0, 0, 0);
    before.attached = Host().threads == threads + 1;
    KivSdUkrThreadDetach(0, 0, 0, 0);
    return original(path, mode);
  }

  static decltype(&std::fopen) original;

  std::string name;
  uint8_t failover;
  bool guarded;
  bool attached;
  size_t wordsOfALock;
  static SetBefore before;
};
SetBefore SetBefore::before = {};
decltype(&std::fopen) SetBefore::original = nullptr;

TEST(Host, InstallsSettingsHooksAndLocksBeforeTheManagerStarts) {
  IN_FRESH_PROCESS([] {
    const OneProcessor oneProcessor;
    const ConfigurationFile file(test::kHeaps.configuration);
    const kiv::test::ImportPatch patch("fopen", reinterpret_cast<void*>(&SetBefore::Open));
    SetBefore::original = reinterpret_cast<decltype(&std::fopen)>(patch.original());
    EXPECT_TRUE(StartHost(LockDesign::kTicket, MemoryUse::kAsConfigured, Failover::kOn));
    EXPECT_EQ(SetBefore::before.name, "cellhost");
    EXPECT_EQ(SetBefore::before.failover, 1u);
    EXPECT_TRUE(SetBefore::before.guarded);
    EXPECT_TRUE(SetBefore::before.attached);
    EXPECT_EQ(SetBefore::before.wordsOfALock, kTicketWords);
    EXPECT_TRUE(HasShortHeaps());
    StopHost();
  });
}

// Counts the guard's calls by an operation that must call it.
uint32_t AskedByAnOperation() {
  const uint32_t before = Host().leaseChecks;
  uint32_t pageBytes = 0;
  EXPECT_EQ(KivSdPageSizeGet(nullptr, &pageBytes), 0u);
  return Host().leaseChecks - before;
}

TEST(Host, CountsCallsOfTheLeaseGuardInFailoverMode) {
  for (const Failover failover : {Failover::kOff, Failover::kOn}) {
    IN_FRESH_PROCESS([failover] {
      EXPECT_TRUE(StartHost(LockDesign::kTicket, MemoryUse::kPlain, failover));
      EXPECT_EQ(AskedByAnOperation(), failover == Failover::kOn ? 1u : 0u);
      StopHost();
      EXPECT_EQ(AskedByAnOperation(), 0u);
    });
  }
}

// In this mode each block is counted separately, including those of the context and the record.
TEST(Host, HasNoBlockBeforeTheManagerStartsNorAfterItEnds) {
  IN_FRESH_PROCESS([] {
    const OneProcessor oneProcessor;
    const ConfigurationFile file(test::kNoHeaps.configuration);
    EXPECT_TRUE(StartHost(LockDesign::kTestAndSet, MemoryUse::kAsConfigured));
    EXPECT_EQ(SettingsNow()[5], 0u);
    EXPECT_GT(MemoryTotalsNow().used(), 0u);
    StopHost();
    EXPECT_TRUE(MemoryTotalsNow().counted);
    EXPECT_EQ(MemoryTotalsNow().used(), 0u);
  });
}

TEST(Host, IsInPlainModeWithoutAFileOrOnRequest) {
  IN_FRESH_PROCESS([] {
    const ConfigurationFile file(test::kPlain.configuration);
    EXPECT_TRUE(StartHost(LockDesign::kTestAndSet, MemoryUse::kAsConfigured));
    EXPECT_FALSE(HasShortHeaps() || MemoryTotalsNow().counted);
    StopHost();
  });
  IN_FRESH_PROCESS([] {
    const ConfigurationFile file(test::kHeaps.configuration);
    EXPECT_TRUE(StartHost(LockDesign::kTestAndSet, MemoryUse::kPlain));
    EXPECT_FALSE(HasShortHeaps() || MemoryTotalsNow().counted);
    StopHost();
  });
}

TEST(Host, ReceivesMemoryMessagesUntilItStops) {
  IN_FRESH_PROCESS([] {
    const OneProcessor oneProcessor;
    const ConfigurationFile file(test::kHeaps.configuration);
    EXPECT_TRUE(StartHost(LockDesign::kTestAndSet, MemoryUse::kAsConfigured));
    EXPECT_EQ(MemoryMessagesSeen().refusals, 0u);
    adMemSendErrorMessage(1);
    EXPECT_EQ(MemoryMessagesSeen().refusals, 1u);
    // The library sends the next message of a kind after this many allocations.
    for (int number = 0; number <= 1000; ++number) kiv::test::Free(kiv::test::Allocate(100));
    adMemSendErrorMessage(1);
    EXPECT_EQ(MemoryMessagesSeen().refusals, 2u);
    for (int number = 0; number <= 1000; ++number) kiv::test::Free(kiv::test::Allocate(100));
    StopHost();
    adMemSendErrorMessage(1);
    EXPECT_EQ(MemoryMessagesSeen().refusals, 2u);
  });
}

TEST(Host, ReportsALimitThatIsTooLow) {
  IN_FRESH_PROCESS([] {
    const ConfigurationFile file("memorylimit 1M");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(StartHost(LockDesign::kTestAndSet, MemoryUse::kAsConfigured));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cellhost: memory: a limit of 1048576 bytes is too low, set 10240 KiB or more; runs "
              "in plain mode\n");
    EXPECT_FALSE(HasShortHeaps());
    StopHost();
  });
}

}  // namespace
}  // namespace cellhost
