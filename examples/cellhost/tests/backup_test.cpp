// Backups: copies of one moment while PUTs are carried out, pauses that end by themselves, and what
// is left of a backup that fails.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "cell_store.h"
#include "storage/journal_record.h"
#include "support/import_patch.h"
#include "support/waiting.h"

namespace cellhost {
namespace {

using kiv::test::ImportPatch;
using kiv::test::kShortMs;
using kiv::test::ScriptedImport;
using kiv::test::Stopwatch;
using test::CellStore;
using test::Contains;
using test::InThread;
using test::Numbered;

constexpr uint32_t kWriters = 4;
constexpr double kPollMs = 2000;  // a writer that waits looks so often

class BackupTest : public test::CellStoreTest {
 protected:
  BackupTest() { EXPECT_TRUE(store_.Open(Folder())); }
  ~BackupTest() override { store_.files().ShutDown(); }

  std::string Copy(uint32_t number) const { return Path(Numbered("backup-", number)); }
  bool HasCopy(uint32_t number) const { return std::filesystem::exists(Copy(number)); }

  CellStore store_;
};

// Threads that each count up in a cell of their own until the end of the scope.
class Counters {
 public:
  explicit Counters(CellStore* store) : store_(*store) {
    for (uint32_t at = 0; at < kWriters; ++at) threads_.emplace_back([this, at] { Run(at); });
  }
  ~Counters() { End(); }
  Counters(const Counters&) = delete;
  Counters& operator=(const Counters&) = delete;

  void End() {
    stop_ = true;
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

  uint32_t stored(uint32_t writer) const { return stored_[writer]; }
  // Until each has stored so many more.
  void AwaitMore(uint32_t count) const {
    for (const std::atomic<uint32_t>& stored : stored_) {
      const uint32_t wanted = stored + count;
      while (stored < wanted) std::this_thread::yield();
    }
  }

 private:
  void Run(uint32_t writer) {
    const InThread record;
    while (!stop_) {
      EXPECT_EQ(store_.Put(writer, writer, stored_[writer] + 1), "");
      ++stored_[writer];
    }
  }

  CellStore& store_;
  std::atomic<bool> stop_{false};
  std::atomic<uint32_t> stored_[kWriters] = {};
  std::vector<std::thread> threads_;
};

TEST_F(BackupTest, ACopyHasTheCellsOfItsMoment) {
  bool made = false;
  EXPECT_EQ(store_.Put(0, 1, 7), "");
  EXPECT_EQ(store_.Put(0, 2, 8), "");
  const std::string before = store_.Everything();
  const std::string text = store_.Backup(0, &made).text;
  ASSERT_TRUE(made) << text;
  EXPECT_TRUE(
      text.starts_with("backup-1: 2 blocks of cells.pag, 2 records of cells.jnl; "
                       "writes were paused for "))
      << text;
  EXPECT_EQ(store_.Put(0, 1, 9), "");
  EXPECT_NE(store_.Everything(), before);
  EXPECT_EQ(Reopen(Copy(1)), before);
}

TEST_F(BackupTest, EachHasAFolderOfItsOwn) {
  bool made = false;
  const std::string first = store_.Everything();
  EXPECT_TRUE(Contains(store_.Backup(0, &made).text, "backup-1: "));
  EXPECT_EQ(store_.Put(5, 5, -1), "");
  EXPECT_TRUE(Contains(store_.Backup(0, &made).text, "backup-2: "));
  EXPECT_EQ(Reopen(Copy(1)), first);
  EXPECT_EQ(Reopen(Copy(2)), store_.Everything());
}

TEST_F(BackupTest, IsOfOneMomentWhilePutsAreCarriedOut) {
  for (uint32_t number = 1; number <= 5; ++number) {
    uint32_t atLeast[kWriters];
    uint32_t atMost[kWriters];
    {
      Counters counters(&store_);
      counters.AwaitMore(5);
      for (uint32_t at = 0; at < kWriters; ++at) atLeast[at] = counters.stored(at);
      bool made = false;
      const std::string text = store_.Backup(0, &made).text;
      ASSERT_TRUE(made) << text;
      // Each writer may have one PUT under way that it has not counted.
      for (uint32_t at = 0; at < kWriters; ++at) atMost[at] = counters.stored(at) + 1;
      counters.AwaitMore(5);
    }
    CellStore copy;
    ASSERT_TRUE(copy.Open(Copy(number)));
    EXPECT_EQ(copy.files().replayed().droppedBytes, 0u);
    for (uint32_t at = 0; at < kWriters; ++at) {
      const int stored = std::atoi(copy.Cell(at, at).c_str());
      EXPECT_GE(stored, static_cast<int>(atLeast[at]));
      EXPECT_LE(stored, static_cast<int>(atMost[at]));
    }
  }
}

TEST_F(BackupTest, QueriesAreAnsweredWhileAPutWaits) {
  bool made = false;
  store_.Backup(600, &made);
  ASSERT_TRUE(made);
  std::atomic<bool> stored{false};
  std::thread writer([&] {
    const InThread record;
    EXPECT_EQ(store_.Put(2, 2, 60), "");
    stored = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
  EXPECT_EQ(store_.Cell(2, 2), "3");
  EXPECT_FALSE(stored);
  EXPECT_EQ(Bytes(Path("cells.jnl")).size(), 0u);
  store_.files().ShutDown();  // the writer looks, and goes on
  writer.join();
  EXPECT_EQ(store_.Cell(2, 2), "60");
}

TEST_F(BackupTest, APauseThatExpiresIsLiftedByAPutThatWaits) {
  bool made = false;
  const std::string text = store_.Backup(1, &made).text;
  ASSERT_TRUE(made) << text;
  EXPECT_TRUE(Contains(text, "; writes stay paused until a PUT finds that 1 s are over")) << text;
  const std::string before = store_.Everything();
  const Stopwatch watch;
  EXPECT_EQ(store_.Put(1, 1, 70), "");
  EXPECT_GE(watch.ElapsedMs(), kPollMs / 2);
  EXPECT_LE(watch.ElapsedMs(), 1000 + 2 * kPollMs + 2000);
  EXPECT_EQ(Reopen(Copy(1)), before);
  EXPECT_EQ(store_.Put(1, 1, 71), "");
}

TEST_F(BackupTest, ASecondIsToldOfThePauseOfTheFirst) {
  bool made = false;
  store_.Backup(600, &made);
  ASSERT_TRUE(made);
  EXPECT_EQ(std::string(store_.Backup(0, &made).text),
            "writes are paused for the last backup; try again when that is over");
  EXPECT_FALSE(made);
  EXPECT_FALSE(HasCopy(2));
}

TEST_F(BackupTest, APauseThatHasExpiredIsNoneForTheNextBackup) {
  bool made = false;
  store_.Backup(1, &made);
  ASSERT_TRUE(made);
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  const std::string text = store_.Backup(0, &made).text;
  EXPECT_TRUE(made) << text;
  EXPECT_EQ(store_.Put(1, 1, 70), "");
}

// ---- In the middle of one ----

// Stands before every read of the system while it lives: the first waits until GoOn.
class StoppedRead {
 public:
  StoppedRead() {
    original_ = reinterpret_cast<Read*>(patch_.original());
    stopped_ = false;
    goOn_ = false;
  }
  static void AwaitStop() {
    while (!stopped_) std::this_thread::yield();
  }
  static void GoOn() { goOn_ = true; }

 private:
  using Read = int __attribute__((ms_abi)) (void*, void*, unsigned long, unsigned long*, void*);

  static int __attribute__((ms_abi))
  Stop(void* file, void* buffer, unsigned long length, unsigned long* count, void* position) {
    stopped_ = true;
    while (!goOn_) std::this_thread::yield();
    return original_(file, buffer, length, count, position);
  }

  static inline Read* original_;
  static inline std::atomic<bool> stopped_;
  static inline std::atomic<bool> goOn_;

  ImportPatch patch_{"ReadFile", reinterpret_cast<void*>(&Stop)};
};

TEST_F(BackupTest, TwoAtOnceAreNotMade) {
  const StoppedRead stopped;
  bool made = false;
  std::thread first([&] {
    const InThread record;
    EXPECT_TRUE(Contains(store_.Backup(0, &made).text, "backup-1: "));
  });
  StoppedRead::AwaitStop();
  bool second = true;
  EXPECT_EQ(std::string(store_.Backup(0, &second).text),
            "another backup is under way; try again when it is done");
  EXPECT_FALSE(second);
  StoppedRead::GoOn();
  first.join();
  EXPECT_TRUE(made);
  EXPECT_FALSE(HasCopy(2));
}

TEST_F(BackupTest, APauseThatIsOverBeforeTheCopyIsSpoilsIt) {
  const StoppedRead stopped;
  std::string text;
  bool made = true;
  std::thread copier([&] {
    const InThread record;
    text = store_.Backup(1, &made).text;
  });
  StoppedRead::AwaitStop();
  EXPECT_EQ(store_.Put(1, 1, 70), "") << "it waits, and lifts the pause";
  StoppedRead::GoOn();
  copier.join();
  EXPECT_FALSE(made);
  EXPECT_EQ(text, "the pause was over before all was copied; give it more seconds");
  EXPECT_FALSE(HasCopy(1));
  EXPECT_EQ(store_.Put(1, 1, 71), "");
}

TEST_F(BackupTest, OneThatFailsLeavesNothingAndWritesGoOn) {
  for (const uint32_t maxSeconds : {0u, 600u}) {
    for (const char* function : {"WriteFile", "ReadFile", "_commit", "_mkdir"}) {
      bool made = true;
      std::string text;
      const std::string told = ToldBy([&] {
        const ScriptedImport failing(function,
                                     {.result = function[0] == '_' ? UINTPTR_MAX : 0, .error = 5});
        text = store_.Backup(maxSeconds, &made).text;
      });
      EXPECT_FALSE(made) << function;
      EXPECT_EQ(text, "the files could not be copied; see what the server said");
      EXPECT_NE(told, "");
      EXPECT_FALSE(HasCopy(1)) << function;
      EXPECT_EQ(store_.Put(1, 1, 70), "") << function;
    }
  }
}

TEST_F(BackupTest, ADamagedBlockIsNotCopied) {
  std::string pages = Bytes(Path("cells.pag"));
  pages[kPageBytes + 100] ^= 1;
  Write(Path("cells.pag"), pages);
  bool made = true;
  EXPECT_TRUE(Contains(ToldBy([&] { store_.Backup(0, &made); }), "block 1 of"));
  EXPECT_FALSE(made);
  EXPECT_FALSE(HasCopy(1));
}

TEST_F(BackupTest, AJournalOfManyPiecesIsCopiedWhole) {
  constexpr uint32_t kPuts = 64 * 1024 / kRecordBytes + 5;
  for (uint32_t at = 0; at < kPuts; ++at) {
    ASSERT_EQ(store_.Put(at % test::kRows, at % 7, at), "");
  }
  bool made = false;
  store_.Backup(0, &made);
  ASSERT_TRUE(made);
  EXPECT_EQ(Bytes(Copy(1) + "\\cells.jnl"), Bytes(Path("cells.jnl")));
  EXPECT_EQ(Reopen(Copy(1)), store_.Everything());
}

}  // namespace
}  // namespace cellhost
