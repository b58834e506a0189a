// Kills a process that carries PUTs out, many times at random moments, starts anew on the same
// folder, and looks whether each PUT that was reported is there, and no other but the one that was
// under way.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "cell_store.h"
#include "support/child_process.h"
#include "support/one_processor.h"
#include "support/shared_record.h"
#include "support/waiting.h"

namespace cellhost {
namespace {

using kiv::test::ChildProcess;
using kiv::test::kKilled;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;
using test::CellStore;
using test::InHost;
using test::InThread;

constexpr uint32_t kKills = 8;
constexpr uint32_t kWriters = 3;
constexpr uint32_t kLongestMicroseconds = 30'000;
constexpr uint32_t kWriteBackEvery = 3;  // kills

// How far each writer has counted up, in memory that the processes share.
struct Progress {
  volatile LONG stored[kWriters];
};

using SharedProgress = kiv::test::SharedRecord<Progress>;

// Each writer counts up in a cell of its own from what it is there; reports each step.
uint32_t CountForEver(const RoleArguments& arguments) {
  const kiv::test::OneProcessor oneProcessor;
  const InHost host;
  const SharedProgress progress(arguments[1]);
  CellStore store;
  if (!store.Open(arguments[0])) return kRoleDone;
  std::vector<std::thread> writers;
  for (uint32_t at = 0; at < kWriters; ++at) {
    writers.emplace_back([&, at] {
      const InThread record;
      for (LONG count = progress->stored[at] + 1;; ++count) {
        if (!store.Put(at, at + 1, count).empty()) return;
        InterlockedExchange(&progress->stored[at], count);
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  return kRoleDone;
}
const RegisteredRole counter("counter", CountForEver);

class KillTest : public test::CellStoreTest {
 protected:
  LONG All(const SharedProgress& progress) {
    LONG sum = 0;
    for (uint32_t at = 0; at < kWriters; ++at) sum += progress->stored[at];
    return sum;
  }

  void KillAfter(uint32_t microseconds, const std::string& name, const SharedProgress& progress) {
    const LONG before = All(progress);
    const ChildProcess child("counter", {Folder(), name});
    const Stopwatch sinceStart;
    while (All(progress) == before && sinceStart.ElapsedMs() < kLimitMs) Sleep(1);
    const Stopwatch sinceFirst;
    while (sinceFirst.ElapsedMs() * 1000 < microseconds) SwitchToThread();
    child.Kill();
    EXPECT_EQ(child.ExitCode(), kKilled) << "it ended by itself: a PUT failed";
    EXPECT_GT(All(progress), before);
  }

  // Each cell has what was reported or the PUT that was under way; the next process goes on there.
  void Check(SharedProgress& progress, bool writeBack) {
    CellStore store;
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_EQ(store.files().replayed().passedOver, 0u);
    LONG carriedOut = 0;
    for (uint32_t at = 0; at < kWriters; ++at) {
      const LONG stored = std::atol(store.Cell(at, at + 1).c_str());
      EXPECT_GE(stored, progress->stored[at]);
      EXPECT_LE(stored, progress->stored[at] + 1);
      InterlockedExchange(&progress->stored[at], stored);
      carriedOut += stored;
    }
    // Counting up, the number of PUTs is the sum of the cells: none was carried out twice.
    EXPECT_EQ(store.files().replayed().carriedOut, static_cast<uint64_t>(carriedOut - inCells_));
    if (!writeBack) return;
    EXPECT_TRUE(store.WriteBack());
    inCells_ = carriedOut;
  }

  LONG inCells_ = 0;  // PUTs that cells.pag has in it
};

TEST_F(KillTest, NoPutThatWasReportedIsLostAndNoneIsCarriedOutTwice) {
  std::mt19937 random(20260101);
  const std::string name = UniqueName("cell-files-kill");
  SharedProgress progress(name);
  for (uint32_t kill = 1; kill <= kKills; ++kill) {
    SCOPED_TRACE(testing::Message() << "kill " << kill);
    KillAfter(random() % kLongestMicroseconds, name, progress);
    Check(progress, kill % kWriteBackEvery == 0);
    if (HasFailure()) return;
  }
  std::printf("%ld PUTs were there after %u kills\n", All(progress), kKills);
}

}  // namespace
}  // namespace cellhost
