// Kills a process at random moments while it starts on a folder, carries out PUTs, makes backups or
// writes its cells back. After each kill, a new start must find each reported PUT, and no other
// except the one that was under way; each backup likewise.
//
// Kills as often as KIVSDU_CELL_KILLS says. Without it, 100 times; on a slow machine it then stops
// early, when its time is over and at least 20 kills are done.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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
using kiv::test::kRoleDone;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;
using test::CellStore;
using test::InHost;
using test::InThread;

constexpr uint32_t kKills = 100;
constexpr uint32_t kLeastKills = 20;
constexpr double kBudgetMs = 150'000;
constexpr double kLongestStartMs = 60'000;
constexpr uint32_t kWriters = 3;
constexpr uint32_t kRows = 4 * kCellsInPage;  // enough that copying and writing take a while
constexpr uint32_t kPutsEach = 5;             // PUTs between two backups or two write-backs
constexpr uint32_t kBackupsMax = 100;         // backups of one process
constexpr uint32_t kLongestMicroseconds = 40'000;

// What a process does when it is killed.
enum Moment { kFirstStart, kStart, kPuts, kBackup, kWriteBack, kMoments };

// The progress of a process, in memory shared with the test.
struct Progress {
  std::atomic<int32_t> stored[kWriters];  // last number stored by each writer
  std::atomic<int32_t> begun;             // how often it has begun its work
  std::atomic<int32_t> backups;           // backups begun
  // Lower bounds for each backup, by its number.
  std::atomic<int32_t> atLeast[kBackupsMax + 1][kWriters];
};
static_assert(std::atomic<int32_t>::is_always_lock_free, "two processes share them");

using SharedProgress = kiv::test::SharedRecord<Progress>;

// The process that is killed: the cells of a folder, and its work on them.
class Server {
 public:
  explicit Server(const SharedProgress& progress) : progress_(progress) {}

  bool Start(const std::string& folder) { return store_.Open(folder); }

  // Lets each writer count up in its own cell, from the cell's value on, during `action`. Reports
  // each step.
  template <class Action>
  void CountDuring(Action action) {
    stop_ = false;
    std::vector<std::thread> writers;
    for (uint32_t at = 0; at < kWriters; ++at) writers.emplace_back([this, at] { Count(at); });
    action();
    stop_ = true;
    for (std::thread& writer : writers) writer.join();
  }

  // Waits until each writer has reported kPutsEach more PUTs.
  void AwaitMore() const {
    for (uint32_t at = 0; at < kWriters; ++at) {
      const int32_t wanted = progress_->stored[at] + static_cast<int32_t>(kPutsEach);
      while (progress_->stored[at] < wanted) std::this_thread::yield();
    }
  }

  void BackUp() {
    const int32_t number = progress_->backups + 1;
    for (uint32_t at = 0; at < kWriters; ++at) {
      progress_->atLeast[number][at] = progress_->stored[at].load();
    }
    ++progress_->backups;
    ++progress_->begun;
    bool made = false;
    const std::string text = store_.Backup(0, &made).text;
    EXPECT_TRUE(made) << text;
  }

  void WriteBack() {
    ++progress_->begun;
    EXPECT_TRUE(store_.WriteBack());
  }

 private:
  void Count(uint32_t at) {
    const InThread record;
    for (int32_t count = progress_->stored[at] + 1; !stop_; ++count) {
      EXPECT_EQ(store_.Put(at, at + 1, count), "");
      progress_->stored[at] = count;
    }
  }

  const SharedProgress& progress_;
  CellStore store_{kRows};
  std::atomic<bool> stop_{false};
};

// The role of the process; it ends only if it fails. Arguments: {folder, progress, moment}
uint32_t ServeForEver(const RoleArguments& arguments) {
  const kiv::test::OneProcessor oneProcessor;
  const InHost host;
  const SharedProgress progress(arguments[1]);
  const int moment = std::atoi(arguments[2].c_str());
  Server server(progress);
  if (moment == kFirstStart || moment == kStart) ++progress->begun;
  if (!server.Start(arguments[0])) return kRoleDone;
  if (moment == kWriteBack) {
    while (!testing::Test::HasFailure()) {
      server.CountDuring([&] { server.AwaitMore(); });
      server.WriteBack();
    }
    return kRoleDone;
  }
  server.CountDuring([&] {
    if (moment == kPuts) ++progress->begun;
    while (!testing::Test::HasFailure()) {
      server.AwaitMore();
      if (moment == kBackup && progress->backups < static_cast<int32_t>(kBackupsMax))
        server.BackUp();
    }
  });
  return kRoleDone;
}
const RegisteredRole server("server", ServeForEver);

// Returns 0 without a wish.
uint32_t KillsWanted() {
  const char* wanted = std::getenv("KIVSDU_CELL_KILLS");
  return wanted != nullptr ? static_cast<uint32_t>(std::strtoul(wanted, nullptr, 10)) : 0;
}

// Whether to kill once more.
bool GoesOn(uint32_t kills, const Stopwatch& watch) {
  const uint32_t wanted = KillsWanted();
  if (wanted != 0) return kills < wanted;
  return kills < kKills && (kills < kLeastKills || watch.ElapsedMs() < kBudgetMs);
}

void ShowProgress(uint32_t kills) {
  if (kills == 0 || kills % kKills != 0) return;
  std::printf("%u kills\n", kills);
  std::fflush(stdout);
}

class KillTest : public test::CellStoreTest {
 protected:
  void Kill(Moment moment) {
    if (moment == kFirstStart) BeginAnew();
    progress_->begun = 0;
    progress_->backups = 0;
    const ChildProcess child("server", {Folder(), name_, std::to_string(moment)});
    const Stopwatch sinceStart;
    while (progress_->begun == 0 && sinceStart.ElapsedMs() < kLongestStartMs) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    EXPECT_NE(progress_->begun, 0);
    const double afterMs = random_() % kLongestMicroseconds / 1000.0;
    for (const Stopwatch since; since.ElapsedMs() < afterMs;) std::this_thread::yield();
    child.Kill();
    EXPECT_EQ(child.ExitCode(), kKilled) << "it ended by itself: something failed";
  }

  void BeginAnew() {
    std::filesystem::remove_all(Folder());
    for (uint32_t at = 0; at < kWriters; ++at) progress_->stored[at] = 0;
    before_ = {};
  }

  // The number in a writer's cell of a folder.
  static int32_t StoredIn(CellStore& store, uint32_t writer) {
    return std::atoi(store.Cell(writer, writer + 1).c_str());
  }

  // Checks that each cell has the last reported number or the next one, which was under way. The
  // next process goes on from there.
  void CheckFolder() {
    CellStore store(kRows);
    ASSERT_TRUE(store.Open(Folder()));
    const Replayed& replayed = store.files().replayed();
    EXPECT_TRUE(replayed.carriedOut == 0 || replayed.passedOver == 0);
    uint64_t puts = 0;
    for (uint32_t at = 0; at < kWriters; ++at) {
      const int32_t stored = StoredIn(store, at);
      EXPECT_GE(stored, progress_->stored[at]);
      EXPECT_LE(stored, progress_->stored[at] + 1);
      progress_->stored[at] = stored;
      puts += static_cast<uint64_t>(stored);
    }
    // The writers count up. The sum of the cells is the number of PUTs if none was applied twice.
    EXPECT_EQ(store.files().lastPut(), puts);
    stored_ += puts - before_;
    before_ = puts;
    if (replayed.passedOver != 0) ++notEmptied_;
  }

  void CheckBackup(const std::string& folder, int32_t number) {
    CellStore copy(kRows);
    ASSERT_TRUE(copy.Open(folder)) << folder;
    for (uint32_t at = 0; at < kWriters; ++at) {
      EXPECT_GE(StoredIn(copy, at), progress_->atLeast[number][at]) << folder;
      EXPECT_LE(StoredIn(copy, at), progress_->stored[at]) << folder;
    }
    ++backups_;
  }

  // Checks an unfinished copy: it is complete, or refused, or nothing has been copied yet.
  void CheckNewCopy() {
    const std::string folder = Path("backup.new");
    if (!std::filesystem::exists(folder)) return;
    ++cutShort_;
    std::error_code none;
    const uintmax_t markBytes = std::filesystem::file_size(folder + "/cells.mrk", none);
    if (none || markBytes == 0) {
      EXPECT_FALSE(std::filesystem::exists(folder + "/cells.pag"));
      return;
    }
    CellStore copy(kRows);
    bool opened = false;
    ToldBy([&] { opened = copy.Open(folder); });
    if (!opened) return;
    for (uint32_t at = 0; at < kWriters; ++at) {
      EXPECT_GE(StoredIn(copy, at), progress_->atLeast[progress_->backups][at]);
    }
  }

  // Checks each finished backup of the killed process.
  void CheckBackups() {
    CheckNewCopy();
    std::vector<std::string> folders;
    for (int32_t number = 1; number <= progress_->backups; ++number) {
      const std::string folder = Path(test::Numbered("backup-", static_cast<uint32_t>(number)));
      // Only the last backup may be unfinished.
      if (number == progress_->backups && !std::filesystem::exists(folder)) break;
      CheckBackup(folder, number);
      folders.push_back(folder);
    }
    for (const std::string& folder : folders) std::filesystem::remove_all(folder);
  }

  std::mt19937 random_{std::random_device{}()};
  const std::string name_ = UniqueName("cell-files-kill");
  const SharedProgress progress_{name_};
  uint64_t before_ = 0;      // PUTs in the folder
  uint64_t stored_ = 0;      // PUTs of all processes
  uint32_t backups_ = 0;     // finished backups
  uint32_t cutShort_ = 0;    // unfinished backups
  uint32_t notEmptied_ = 0;  // journals whose PUTs the cells already included
};

TEST_F(KillTest, NoReportedPutIsLostOrAppliedTwice) {
  const Stopwatch watch;
  uint32_t kills = 0;
  for (; GoesOn(kills, watch); ++kills) {
    SCOPED_TRACE(testing::Message() << "kill " << kills);
    ShowProgress(kills);
    Kill(static_cast<Moment>(kills % kMoments));
    CheckFolder();
    CheckBackups();
    if (HasFailure()) return;
  }
  std::printf(
      "%llu PUTs were there after %u kills, and %u backups; %u backups were cut short, and %u "
      "journals not emptied\n",
      static_cast<unsigned long long>(stored_), kills, backups_, cutShort_, notEmptied_);
}

}  // namespace
}  // namespace cellhost
