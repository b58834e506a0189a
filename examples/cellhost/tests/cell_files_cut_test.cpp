// Cuts the power at every step that a server makes on its files. Each state in which the disk may be
// then must start: with every PUT that was reported as stored, with no other except the one under
// way, and with every backup that was reported. A copy that is not complete must be refused.
//
// After each step the test looks at the disk with nothing of what was not flushed, with all of it,
// and with random parts of it: 2, or as many as KIVSDU_POWER_CUTS says. KIVSDU_POWER_SEED chooses
// them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "cell_store.h"
#include "host/platform.h"
#include "recorded_disk.h"

namespace cellhost {
namespace {

namespace fs = std::filesystem;
using test::CellStore;
using test::Disk;
using test::DiskImage;
using test::DiskStep;
using test::Reached;
using test::Recording;

constexpr uint32_t kRows = 2 * kCellsInPage;  // three blocks with the head
constexpr uint32_t kCells = 3;                // that change
constexpr uint32_t kRandomCuts = 2;           // after each step
constexpr uint32_t kStatesPerLine = 1000;     // of progress
constexpr size_t kRenamed = 1;                // the backup that is renamed

uint32_t Setting(const char* name, uint32_t otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr ? otherwise : static_cast<uint32_t>(std::strtoul(value, nullptr, 10));
}

// The numbers in the cells that change. A cell's number counts its PUTs; 0 is the facts' own.
using Numbers = std::vector<uint32_t>;

// A PUT or a backup, and the numbers after it.
struct Stored {
  size_t begun;  // steps before it
  size_t done;   // steps when it was reported
  Numbers numbers;
};

class CutTest : public test::CellStoreTest {
 protected:
  void SetUp() override { fs::create_directory(folder_.Path("disk")); }

  std::string Disk() const { return folder_.Path("disk"); }
  std::string Server() const { return Disk() + "/data"; }

  // ---- The record ----

  void Put(CellStore* store, uint32_t cell) {
    const size_t begun = recording_->steps().size();
    Numbers numbers = puts_.back().numbers;
    ++numbers[cell];
    EXPECT_EQ(store->Put(cell, cell + 1, numbers[cell]), "");
    puts_.push_back({begun, recording_->steps().size(), numbers});
  }

  void PutSome(CellStore* store, uint32_t count) {
    for (uint32_t at = 0; at < count; ++at) Put(store, at % kCells);
  }

  void BackUp(CellStore* store, const char* name) {
    const size_t begun = recording_->steps().size();
    bool made = false;
    const std::string text = store->Backup(0, &made).text;
    EXPECT_TRUE(made) << text;
    EXPECT_TRUE(text.starts_with(name)) << text;
    backups_.push_back({begun, recording_->steps().size(), puts_.back().numbers});
    backupNames_.emplace_back(name);
  }

  // A server's start, PUTs, a backup, and a write-back unless the server is killed.
  void RunServer(const char* backup, bool isKilled) {
    CellStore store(kRows);
    ASSERT_TRUE(store.Open(Server()));
    PutSome(&store, 4);
    BackUp(&store, backup);
    PutSome(&store, 3);
    if (!isKilled) EXPECT_TRUE(store.WriteBack());
  }

  // The third server finds the second one's copy under the name of an unfinished one.
  void RunServers() {
    puts_.push_back({0, 0, Numbers(kCells)});
    RunServer("backup-1", false);
    RunServer("backup-2", true);
    renamedAt_ = recording_->steps().size();
    EXPECT_EQ(Rename((Server() + "/backup-2").c_str(), (Server() + "/backup.new").c_str(), false),
              0u);
    RunServer("backup-2", false);
  }

  // ---- What must be there after a cut ----

  // The last PUT that was reported before a cut.
  const Stored& LastStored(size_t cut) const {
    size_t last = 0;
    for (size_t at = 0; at < puts_.size(); ++at) {
      if (puts_[at].done <= cut) last = at;
    }
    return puts_[last];
  }

  // Whether the numbers are those of the last PUT that was reported, or of the one after it if that
  // had begun.
  bool IsExpected(const Numbers& found, size_t cut) const {
    const Stored& last = LastStored(cut);
    if (found == last.numbers) return true;
    const Stored* next = &last + 1;
    return next != &puts_.back() + 1 && next->begun < cut && found == next->numbers;
  }

  static Numbers NumbersIn(CellStore* store) {
    Numbers numbers;
    for (uint32_t cell = 0; cell < kCells; ++cell) {
      const std::string text = store->Cell(cell, cell + 1);
      numbers.push_back(static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10)));
    }
    return numbers;
  }

  // Opens a folder. Returns the reason if it is refused.
  static std::string Open(const std::string& folder, Numbers* numbers) {
    CellStore store(kRows);
    bool opened = false;
    const std::string told = ToldBy([&] { opened = store.Open(folder); });
    if (opened) *numbers = NumbersIn(&store);
    return opened ? "" : told + " ";
  }

  void CheckServer(const std::string& folder, size_t cut) {
    Numbers found;
    EXPECT_EQ(Open(folder, &found), "");
    EXPECT_TRUE(found.empty() || IsExpected(found, cut)) << testing::PrintToString(found);
  }

  // A server on a folder without mark and cells begins anew: it takes nothing for a copy.
  static bool IsEmptyCopy(const std::string& folder) {
    std::error_code none;
    const uintmax_t markBytes = fs::file_size(folder + "/cells.mrk", none);
    return (none || markBytes == 0) && !fs::exists(folder + "/cells.pag") &&
           !fs::exists(folder + "/cells.jnl");
  }

  // Whether a backup that had begun before the cut has these numbers.
  bool IsOfABackup(const Numbers& found, size_t cut) const {
    return std::any_of(backups_.begin(), backups_.end(), [&](const Stored& backup) {
      return backup.begun < cut && backup.numbers == found;
    });
  }

  // A copy that was not reported may be empty or refused, but if it is taken for whole, it is.
  void CheckUnreportedCopy(const std::string& folder, size_t cut) {
    if (!fs::exists(folder) || IsEmptyCopy(folder)) return;
    Numbers found;
    if (!Open(folder, &found).empty()) return;
    EXPECT_TRUE(IsOfABackup(found, cut)) << folder << " has " << testing::PrintToString(found);
    ++copies_;
  }

  void CheckReportedCopy(const std::string& folder, const Numbers& expected) {
    Numbers found;
    EXPECT_EQ(Open(folder, &found), "");
    EXPECT_EQ(found, expected) << folder;
    ++copies_;
  }

  void CheckBackups(const std::string& server, size_t cut) {
    for (size_t at = 0; at < backups_.size(); ++at) {
      const std::string folder = server + "/" + backupNames_[at];
      const bool isGone = at == kRenamed && cut > renamedAt_;
      if (backups_[at].done <= cut && !isGone) {
        CheckReportedCopy(folder, backups_[at].numbers);
      } else {
        CheckUnreportedCopy(folder, cut);
      }
    }
    CheckUnreportedCopy(server + "/backup.new", cut);
  }

  void CheckImage(const DiskImage& image, size_t cut) {
    const std::string folder = folder_.Path("cut");
    fs::remove_all(folder);
    image.WriteTo(folder);
    CheckBackups(folder + "/data", cut);  // before a server changes anything
    CheckServer(folder + "/data", cut);
    if (++states_ % kStatesPerLine == 0) ShowProgress();
  }

  void ShowProgress() const {
    std::printf("%u states of the disk\n", states_);
    std::fflush(stdout);
  }

  void CutAfter(size_t cut, const test::Disk& disk) {
    const uint32_t randomCuts = Setting("KIVSDU_POWER_CUTS", kRandomCuts);
    for (uint32_t at = 0; at < randomCuts + 2 && !HasFailure(); ++at) {
      const Reached reached = at == 0   ? Reached::kNothing
                              : at == 1 ? Reached::kEverything
                                        : Reached::kSome;
      SCOPED_TRACE(testing::Message()
                   << "cut after step " << cut << ", state " << at << ", seed " << seed_);
      CheckImage(disk.Cut(reached, &random_), cut);
    }
  }

  const uint32_t seed_ = Setting("KIVSDU_POWER_SEED", 1);
  std::mt19937 random_{seed_};
  const Recording* recording_ = nullptr;
  std::vector<Stored> puts_;
  std::vector<Stored> backups_;
  std::vector<std::string> backupNames_;
  size_t renamedAt_ = 0;
  uint32_t states_ = 0;
  uint32_t copies_ = 0;
};

TEST_F(CutTest, NoReportedPutIsLostAndNoIncompleteCopyIsTakenForWhole) {
  std::vector<DiskStep> steps;
  {
    const Recording recording(Disk());
    recording_ = &recording;
    RunServers();
    steps = recording.steps();
  }
  test::Disk disk;
  for (size_t cut = 0; cut <= steps.size() && !HasFailure(); ++cut) {
    CutAfter(cut, disk);
    if (cut < steps.size()) disk.Take(steps[cut]);
  }
  std::printf("%s steps, %u states of the disk, %u copies that were taken for whole\n",
              std::to_string(steps.size()).c_str(), states_, copies_);
}

}  // namespace
}  // namespace cellhost
