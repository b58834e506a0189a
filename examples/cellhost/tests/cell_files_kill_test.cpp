// Kills a process that starts on a folder, carries PUTs out, makes backups and writes its cells
// back, many times at random moments of each, and starts anew on what it left: each PUT that was
// reported is there, and no other but the one that was under way, and so in each backup.
//
// 100 kills, or as many as KIVSDU_CELL_KILLS says.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
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
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;
using test::CellStore;
using test::InHost;
using test::InThread;

constexpr uint32_t kKills = 100;
constexpr uint32_t kWriters = 3;
constexpr uint32_t kRows = 4 * kCellsInPage;  // so that copying and writing take a while
constexpr uint32_t kPutsEach = 5;             // between two backups, or two write-backs
constexpr uint32_t kBackupsMax = 100;         // of a process
constexpr uint32_t kLongestMicroseconds = 40'000;

// What a process is at when it is killed.
enum Moment { kFirstStart, kStart, kPuts, kBackup, kWriteBack, kMoments };

// How far a process has come, in memory that it shares with the test.
struct Progress {
  volatile LONG stored[kWriters];                    // each writer has counted up to here
  volatile LONG begun;                               // how often it has begun what it is killed at
  volatile LONG backups;                             // begun
  volatile LONG atLeast[kBackupsMax + 1][kWriters];  // what each backup must have, by its number
};

using SharedProgress = kiv::test::SharedRecord<Progress>;

void Note(volatile LONG* value) { InterlockedIncrement(value); }

// The cells of a folder, and what is done to them.
class Server {
 public:
  explicit Server(const SharedProgress& progress) : progress_(progress) {}

  bool Start(const std::string& folder) { return store_.Open(folder); }

  // Has each writer count up in a cell of its own, from what it is there, while `action` is done.
  // Each step is reported.
  template <class Action>
  void CountDuring(Action action) {
    stop_ = false;
    std::vector<std::thread> writers;
    for (uint32_t at = 0; at < kWriters; ++at) writers.emplace_back([this, at] { Count(at); });
    action();
    stop_ = true;
    for (std::thread& writer : writers) writer.join();
  }

  // Until each writer has reported some more.
  void AwaitMore() const {
    for (uint32_t at = 0; at < kWriters; ++at) {
      const LONG wanted = progress_->stored[at] + static_cast<LONG>(kPutsEach);
      while (progress_->stored[at] < wanted) Sleep(0);
    }
  }

  void BackUp() {
    const LONG number = progress_->backups + 1;
    for (uint32_t at = 0; at < kWriters; ++at) {
      progress_->atLeast[number][at] = progress_->stored[at];
    }
    Note(&progress_->backups);
    Note(&progress_->begun);
    bool made = false;
    const std::string text = store_.Backup(0, &made).text;
    EXPECT_TRUE(made) << text;
  }

  void WriteBack() {
    Note(&progress_->begun);
    EXPECT_TRUE(store_.WriteBack());
  }

 private:
  void Count(uint32_t at) {
    const InThread record;
    for (LONG count = progress_->stored[at] + 1; !stop_; ++count) {
      EXPECT_EQ(store_.Put(at, at + 1, count), "");
      InterlockedExchange(&progress_->stored[at], count);
    }
  }

  const SharedProgress& progress_;
  CellStore store_{kRows};
  std::atomic<bool> stop_{false};
};

// What ends by itself has failed: {folder, progress, moment}
uint32_t ServeForEver(const RoleArguments& arguments) {
  const kiv::test::OneProcessor oneProcessor;
  const InHost host;
  const SharedProgress progress(arguments[1]);
  const int moment = std::atoi(arguments[2].c_str());
  Server server(progress);
  if (moment == kFirstStart || moment == kStart) Note(&progress->begun);
  if (!server.Start(arguments[0])) return kRoleDone;
  if (moment == kWriteBack) {
    while (!testing::Test::HasFailure()) {
      server.CountDuring([&] { server.AwaitMore(); });
      server.WriteBack();
    }
    return kRoleDone;
  }
  server.CountDuring([&] {
    if (moment == kPuts) Note(&progress->begun);
    while (!testing::Test::HasFailure()) {
      server.AwaitMore();
      if (moment == kBackup && progress->backups < static_cast<LONG>(kBackupsMax)) server.BackUp();
    }
  });
  return kRoleDone;
}
const RegisteredRole server("server", ServeForEver);

uint32_t KillsWanted() {
  const char* wanted = std::getenv("KIVSDU_CELL_KILLS");
  return wanted != nullptr ? static_cast<uint32_t>(std::strtoul(wanted, nullptr, 10)) : kKills;
}

class KillTest : public test::CellStoreTest {
 protected:
  void Kill(Moment moment) {
    if (moment == kFirstStart) BeginAnew();
    InterlockedExchange(&progress_->begun, 0);
    InterlockedExchange(&progress_->backups, 0);
    const ChildProcess child("server", {Folder(), name_, std::to_string(moment)});
    const Stopwatch sinceStart;
    while (progress_->begun == 0 && sinceStart.ElapsedMs() < kLimitMs) SwitchToThread();
    EXPECT_NE(progress_->begun, 0);
    const double afterMs = random_() % kLongestMicroseconds / 1000.0;
    for (const Stopwatch since; since.ElapsedMs() < afterMs;) SwitchToThread();
    child.Kill();
    EXPECT_EQ(child.ExitCode(), kKilled) << "it ended by itself: something failed";
  }

  void BeginAnew() {
    std::filesystem::remove_all(Folder());
    for (uint32_t at = 0; at < kWriters; ++at) InterlockedExchange(&progress_->stored[at], 0);
    before_ = {};
  }

  // What a writer has stored, in the cells of a folder.
  static LONG StoredIn(CellStore& store, uint32_t writer) {
    return std::atol(store.Cell(writer, writer + 1).c_str());
  }

  // Each cell has what was reported or the PUT that was under way; the next process goes on there.
  void CheckFolder() {
    CellStore store(kRows);
    ASSERT_TRUE(store.Open(Folder()));
    const Replayed& replayed = store.files().replayed();
    EXPECT_TRUE(replayed.carriedOut == 0 || replayed.passedOver == 0);
    uint64_t puts = 0;
    for (uint32_t at = 0; at < kWriters; ++at) {
      const LONG stored = StoredIn(store, at);
      EXPECT_GE(stored, progress_->stored[at]);
      EXPECT_LE(stored, progress_->stored[at] + 1);
      InterlockedExchange(&progress_->stored[at], stored);
      puts += static_cast<uint64_t>(stored);
    }
    // As they count up, the PUTs are as many as the cells say together: none was carried out twice.
    EXPECT_EQ(store.files().lastPut(), puts);
    stored_ += puts - before_;
    before_ = puts;
    if (replayed.passedOver != 0) ++notEmptied_;
  }

  void CheckBackup(const std::string& folder, LONG number) {
    CellStore copy(kRows);
    ASSERT_TRUE(copy.Open(folder)) << folder;
    for (uint32_t at = 0; at < kWriters; ++at) {
      EXPECT_GE(StoredIn(copy, at), progress_->atLeast[number][at]) << folder;
      EXPECT_LE(StoredIn(copy, at), progress_->stored[at]) << folder;
    }
    ++backups_;
  }

  // What has no number is whole or refused, or nothing has been copied yet.
  void CheckNewCopy() {
    const std::string folder = Path("backup.new");
    if (!std::filesystem::exists(folder)) return;
    ++cutShort_;
    std::error_code none;
    const uintmax_t markBytes = std::filesystem::file_size(folder + "\\cells.mrk", none);
    if (none || markBytes == 0) {
      EXPECT_FALSE(std::filesystem::exists(folder + "\\cells.pag"));
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

  // Each backup that has a number, of the process that was killed.
  void CheckBackups() {
    CheckNewCopy();
    std::vector<std::string> folders;
    for (LONG number = 1; number <= progress_->backups; ++number) {
      const std::string folder = Path(test::Numbered("backup-", static_cast<uint32_t>(number)));
      // All but the last have their names, for the process has begun another.
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
  uint64_t stored_ = 0;      // PUTs in all
  uint32_t backups_ = 0;     // that were whole
  uint32_t cutShort_ = 0;    // backups without a number
  uint32_t notEmptied_ = 0;  // journals that the cells had in them
};

TEST_F(KillTest, NoPutThatWasReportedIsLostAndNoneIsCarriedOutTwice) {
  const uint32_t kills = KillsWanted();
  for (uint32_t kill = 0; kill < kills; ++kill) {
    SCOPED_TRACE(testing::Message() << "kill " << kill);
    Kill(static_cast<Moment>(kill % kMoments));
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
