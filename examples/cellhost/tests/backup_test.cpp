// Backups: copies of one moment while PUTs go on, pauses that expire, and failed backups.
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
#include "support/system_interface.h"
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
constexpr double kPollMs = 2000;  // a waiting writer checks the pause at this interval

class BackupTest : public test::CellStoreTest {
 protected:
  BackupTest() { EXPECT_TRUE(store_.Open(Folder())); }

  std::string Copy(uint32_t number) const { return Path(Numbered("backup-", number)); }
  bool HasCopy(uint32_t number) const { return std::filesystem::exists(Copy(number)); }
  // Whether there is an unfinished copy.
  bool HasNewCopy() const { return std::filesystem::exists(newCopy_); }

  // The contents of the files, as another program reads them.
  std::string Files() const { return Bytes(Path("cells.pag")) + Bytes(Path("cells.jnl")); }

  const std::string newCopy_ = Path("backup.new");
  CellStore store_;
};

// Threads for one scope; each counts up in its own cell.
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
  // Waits until each thread has stored `count` more numbers.
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

TEST_F(BackupTest, CopiesTheCellsOfOneMoment) {
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

TEST_F(BackupTest, GetsItsOwnFolder) {
  bool made = false;
  const std::string first = store_.Everything();
  EXPECT_TRUE(Contains(store_.Backup(0, &made).text, "backup-1: "));
  EXPECT_EQ(store_.Put(5, 5, -1), "");
  EXPECT_TRUE(Contains(store_.Backup(0, &made).text, "backup-2: "));
  EXPECT_EQ(Reopen(Copy(1)), first);
  EXPECT_EQ(Reopen(Copy(2)), store_.Everything());
}

TEST_F(BackupTest, CopiesOneMomentWhilePutsGoOn) {
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
      // Each writer may have one PUT under way that is not counted yet.
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

TEST_F(BackupTest, LetsQueriesGoOnWhileAPutWaits) {
  bool made = false;
  store_.Backup(1, &made);
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
  writer.join();
  EXPECT_EQ(store_.Cell(2, 2), "60");
}

TEST_F(BackupTest, AWaitingPutLiftsAnExpiredPause) {
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

TEST_F(BackupTest, ASecondFailsDuringThePauseOfTheFirst) {
  bool made = false;
  store_.Backup(600, &made);
  ASSERT_TRUE(made);
  EXPECT_EQ(std::string(store_.Backup(0, &made).text),
            "writes are paused for the last backup; try again when that is over");
  EXPECT_FALSE(made);
  EXPECT_FALSE(HasCopy(2));
}

TEST_F(BackupTest, TheNextLiftsAnExpiredPause) {
  bool made = false;
  store_.Backup(1, &made);
  ASSERT_TRUE(made);
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  const std::string text = store_.Backup(0, &made).text;
  EXPECT_TRUE(made) << text;
  EXPECT_EQ(store_.Put(1, 1, 70), "");
}

// ---- In the middle of a backup ----

// Replaces ReadFile for its lifetime: the first read waits until GoOn.
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
  using Read = BOOL WINAPI(HANDLE, void*, DWORD, DWORD*, void*);

  static BOOL WINAPI Stop(HANDLE file, void* buffer, DWORD length, DWORD* count, void* position) {
    stopped_ = true;
    while (!goOn_) std::this_thread::yield();
    return original_(file, buffer, length, count, position);
  }

  static inline Read* original_;
  static inline std::atomic<bool> stopped_;
  static inline std::atomic<bool> goOn_;

  ImportPatch patch_{"ReadFile", reinterpret_cast<void*>(&Stop)};
};

// Replaces the C runtime's flush for its lifetime: the first flush waits until GoOn.
class StoppedFlush {
 public:
  StoppedFlush() {
    original_ = reinterpret_cast<Flush*>(patch_.original());
    stopped_ = false;
    goOn_ = false;
  }
  static void AwaitStop() {
    while (!stopped_) std::this_thread::yield();
  }
  static void GoOn() { goOn_ = true; }

 private:
  using Flush = int(int);

  static int Stop(int file) {
    stopped_ = true;
    while (!goOn_) std::this_thread::yield();
    return original_(file);
  }

  static inline Flush* original_;
  static inline std::atomic<bool> stopped_;
  static inline std::atomic<bool> goOn_;

  ImportPatch patch_{"_commit", reinterpret_cast<void*>(&Stop)};
};

TEST_F(BackupTest, WaitsForARecordThatIsNotYetOnTheDevice) {
  const StoppedFlush stopped;
  std::thread writer([&] {
    const InThread record;
    EXPECT_EQ(store_.Put(1, 2, 70), "");
  });
  StoppedFlush::AwaitStop();
  std::atomic<bool> done{false};
  std::thread copier([&] {
    const InThread record;
    bool made = false;
    EXPECT_TRUE(Contains(store_.Backup(0, &made).text, ", 1 records of cells.jnl"));
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(5 * kShortMs));
  EXPECT_FALSE(done || HasNewCopy()) << "the pause was complete before the record was";
  StoppedFlush::GoOn();
  writer.join();
  copier.join();
  CellStore copy;
  ASSERT_TRUE(copy.Open(Copy(1)));
  EXPECT_EQ(copy.Cell(1, 2), "70");
}

TEST_F(BackupTest, GetsItsNameOnlyWhenComplete) {
  ASSERT_EQ(store_.Put(0, 1, 7), "");
  const StoppedRead stopped;
  bool made = false;
  std::thread copier([&] {
    const InThread record;
    store_.Backup(0, &made);
  });
  StoppedRead::AwaitStop();
  EXPECT_FALSE(HasCopy(1));
  EXPECT_TRUE(HasNewCopy());
  std::filesystem::copy(newCopy_, Path("killed"));
  StoppedRead::GoOn();
  copier.join();
  ASSERT_TRUE(made);
  EXPECT_TRUE(HasCopy(1));
  EXPECT_FALSE(HasNewCopy());
  // A server does not accept the unfinished copy that a killed server would leave.
  EXPECT_NE(Reopen(Path("killed")), store_.Everything());
  EXPECT_EQ(Reopen(Copy(1)), store_.Everything());
}

TEST_F(BackupTest, RemovesAnUnfinishedCopyOfAKilledServer) {
  folder_.Make("data/backup.new");
  Write(Join(newCopy_, "cells.pag"), "half");
  Write(Join(newCopy_, "stale"), "");
  bool made = false;
  const std::string text = store_.Backup(0, &made).text;
  ASSERT_TRUE(made) << text;
  EXPECT_FALSE(HasNewCopy());
  EXPECT_FALSE(std::filesystem::exists(Join(Copy(1), "stale")));
  EXPECT_EQ(Reopen(Copy(1)), store_.Everything());
}

TEST_F(BackupTest, ACopyThatLacksPutsIsRefused) {
  for (const uint32_t at : {0u, 1u, 2u}) EXPECT_EQ(store_.Put(at, at + 1, 9), "");
  bool made = false;
  store_.Backup(0, &made);
  ASSERT_TRUE(made);
  const std::string path = Join(Copy(1), "cells.jnl");
  const std::string whole = Bytes(path);
  ASSERT_EQ(whole.size(), 3 * kRecordBytes);
  for (const size_t bytes : {0u, 1u, 31u, 32u, 64u, 95u}) {
    Write(path, whole.substr(0, bytes));
    EXPECT_TRUE(Contains(Reopen(Copy(1)), "and had 3; restore the folder")) << bytes;
    EXPECT_EQ(Bytes(path).size(), bytes) << "nothing is cut from what is refused";
  }
  Write(path, whole);
  EXPECT_EQ(Reopen(Copy(1)), store_.Everything());
}

// A server can serve a copy, change cells and write them back; the mark stays valid.
TEST_F(BackupTest, ACopyCanBeServedRepeatedly) {
  EXPECT_EQ(store_.Put(0, 1, 9), "");
  bool made = false;
  store_.Backup(0, &made);
  ASSERT_TRUE(made);
  std::string before;
  for (const bool writeBack : {false, true, true}) {
    CellStore copy;
    ASSERT_TRUE(copy.Open(Copy(1)));
    if (!before.empty()) {
      EXPECT_EQ(copy.Everything(), before);
    }
    EXPECT_EQ(copy.Put(0, 2, writeBack ? 1 : 2), "");
    before = copy.Everything();
    if (writeBack) {
      EXPECT_TRUE(copy.WriteBack());
    }
  }
  EXPECT_EQ(Reopen(Copy(1)), before);
}

// A refused PUT may leave a record that could not be cut off.
TEST_F(BackupTest, CopiesTheJournalUpToTheLastValidRecord) {
  EXPECT_EQ(store_.Put(0, 1, 7), "");
  const std::string before = store_.Everything();
  ToldBy([&] {
    const ScriptedImport noFlush("_commit", {.result = UINTPTR_MAX, .error = 5});
    const ScriptedImport noCut("_chsize", {.result = UINTPTR_MAX, .error = 5});
    EXPECT_NE(store_.Put(1, 1, 51), "");
  });
  ASSERT_EQ(Bytes(Path("cells.jnl")).size(), 2 * kRecordBytes);
  bool made = false;
  const std::string text = store_.Backup(0, &made).text;
  EXPECT_TRUE(Contains(text, ", 1 records of cells.jnl")) << text;
  EXPECT_EQ(Bytes(Join(Copy(1), "cells.jnl")).size(), kRecordBytes);
  EXPECT_EQ(Reopen(Copy(1)), before);
}

// Replaces the wall clock for its lifetime; Advance sets it ahead.
class AdvancedClock {
 public:
  AdvancedClock() {
    original_ = reinterpret_cast<Time*>(patch_.original());
    aheadSeconds_ = 0;
  }
  static void Advance(int64_t seconds) { aheadSeconds_ = seconds; }

 private:
  using Time = int64_t(int64_t*);

  static int64_t Ahead(int64_t* seconds) { return original_(seconds) + aheadSeconds_; }

  static inline Time* original_;
  static inline std::atomic<int64_t> aheadSeconds_;

  ImportPatch patch_{"_time64", reinterpret_cast<void*>(&Ahead)};
};

// During a pause, another program may be copying the files.
TEST_F(BackupTest, WriteBackWaitsForTheEndOfAPause) {
  EXPECT_EQ(store_.Put(0, 1, 7), "");
  bool made = false;
  const Stopwatch watch;
  store_.Backup(1, &made);
  ASSERT_TRUE(made);
  const std::string before = Files();
  std::atomic<bool> done{false};
  std::thread end([&] {
    const InThread record;
    EXPECT_TRUE(store_.WriteBack());
    EXPECT_GE(watch.ElapsedMs(), 1000);
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(5 * kShortMs));
  EXPECT_EQ(Files(), before);
  EXPECT_FALSE(done);
  end.join();
  EXPECT_EQ(Bytes(Path("cells.jnl")), "");
}

TEST_F(BackupTest, WriteBackWaitsForABackupUnderWay) {
  EXPECT_EQ(store_.Put(0, 1, 7), "");
  const AdvancedClock clock;
  const StoppedRead stopped;
  bool made = false;
  std::thread copier([&] {
    const InThread record;
    store_.Backup(0, &made);
  });
  StoppedRead::AwaitStop();
  const std::string before = Files();
  // The pause has expired: a thread that only waited for its end would lift it now.
  AdvancedClock::Advance(kBackupSecondsMax + 1);
  std::thread end([&] {
    const InThread record;
    EXPECT_TRUE(store_.WriteBack());
  });
  std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(1.1 * kPollMs));
  EXPECT_EQ(Files(), before);
  StoppedRead::GoOn();
  copier.join();
  end.join();
  EXPECT_TRUE(made);
  EXPECT_EQ(Reopen(Copy(1)), store_.Everything());
  // WriteBack prevents further backups.
  EXPECT_FALSE(Contains(store_.Backup(0, &made).text, "backup-2"));
  EXPECT_FALSE(made);
}

TEST_F(BackupTest, LimitsThePauseOfAPlainBackup) {
  const AdvancedClock clock;
  const StoppedRead stopped;
  bool made = true;
  std::string text;
  std::thread copier([&] {
    const InThread record;
    text = store_.Backup(0, &made).text;
  });
  StoppedRead::AwaitStop();
  AdvancedClock::Advance(kBackupSecondsMax + 1);
  std::atomic<bool> stored{false};
  std::thread writer([&] {
    const InThread record;
    EXPECT_EQ(store_.Put(1, 1, 70), "");
    stored = true;
  });
  for (const Stopwatch watch; !stored && watch.ElapsedMs() < 3 * kPollMs;) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(stored) << "a PUT that waits lifts the pause when the time is over";
  StoppedRead::GoOn();
  copier.join();
  writer.join();
  EXPECT_FALSE(made);
  EXPECT_EQ(text, "the pause was over before all was copied; give it more seconds, up to 20");
  EXPECT_FALSE(HasCopy(1) || HasNewCopy());
}

TEST_F(BackupTest, ASecondFailsWhileTheFirstIsUnderWay) {
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

TEST_F(BackupTest, FailsIfThePauseEndsBeforeTheCopy) {
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
  EXPECT_EQ(text, "the pause was over before all was copied; give it more seconds, up to 20");
  EXPECT_FALSE(HasCopy(1) || HasNewCopy());
  EXPECT_EQ(store_.Put(1, 1, 71), "");
}

TEST_F(BackupTest, AFailedBackupLeavesNothingAndWritesGoOn) {
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
      EXPECT_FALSE(HasCopy(1) || HasNewCopy()) << function;
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
  EXPECT_FALSE(HasCopy(1) || HasNewCopy());
}

TEST_F(BackupTest, CopiesAJournalOfManyPieces) {
  constexpr uint32_t kPuts = 64 * 1024 / kRecordBytes + 5;
  for (uint32_t at = 0; at < kPuts; ++at) {
    ASSERT_EQ(store_.Put(at % test::kRows, at % 7, at), "");
  }
  bool made = false;
  store_.Backup(0, &made);
  ASSERT_TRUE(made);
  EXPECT_EQ(Bytes(Join(Copy(1), "cells.jnl")), Bytes(Path("cells.jnl")));
  EXPECT_EQ(Reopen(Copy(1)), store_.Everything());
}

}  // namespace
}  // namespace cellhost
