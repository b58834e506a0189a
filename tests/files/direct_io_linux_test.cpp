// Direct I/O on Linux: the words of an open bit by bit, file systems without direct transfers, and
// transfers in the background by any of the kernel's services.
//
// The program runs once for each service: KIVSDU_ASYNC_IO chooses it (CMakeLists.txt).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/lnx/transfer_queue.h"
#include "support/context.h"
#include "support/direct_io.h"
#include "support/temporary_folder.h"
#include "support/waiting.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kTransferPending = 997;

uint32_t OpenDescriptors() {
  uint32_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

class LinuxDirectIO : public testing::Test {
 protected:
  LinuxDirectIO() {
    kiv::os::AsyncBackend();  // its own descriptors stay open
    before_ = OpenDescriptors();
  }
  ~LinuxDirectIO() override {
    EXPECT_EQ(OpenDescriptors(), before_) << "descriptors were left open";
  }

  std::string path() const { return folder_.Path("blocks"); }

  uint32_t Open(uint32_t access, uint32_t share, uint32_t disposition, uint32_t flags = 0) {
    uint32_t file = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFileOpen(ctx_, path().c_str(), access, share, disposition, nullptr,
                                         flags, &file));
    return file;
  }

  void Close(uint32_t file) { CHECK_OK(ctx_, KivSdDirectIOFileClose(ctx_, file)); }

  void ExpectRefused(uint32_t error, uint32_t access, uint32_t share, uint32_t disposition,
                     uint32_t flags = 0) {
    uint32_t file = kUntouched;
    CHECK_OUTCOME(ctx_,
                  KivSdDirectIOFileOpen(ctx_, path().c_str(), access, share, disposition, nullptr,
                                        flags, &file),
                  error == EBUSY ? KIV_ST_FILE_SHARING : KIV_ST_FILE_CREATE, error);
    EXPECT_EQ(file, KIV_DIRECTIO_NONE);
  }

  uint64_t Size() const { return std::filesystem::file_size(path()); }

  uint32_t before_;
  TemporaryFolder folder_;
  Context ctx_;
};

// ---- Words ----

TEST_F(LinuxDirectIO, RefusesWordsWithoutMeaning) {
  for (const uint32_t access : {0x4u, 0x8u, 0x40u, 0x02000000u}) {
    ExpectRefused(EINVAL, access, 7, kOpenAlways);
  }
  ExpectRefused(EINVAL, kReadAndWrite, 8, kOpenAlways);
  for (const uint32_t disposition : {0u, 6u}) ExpectRefused(EINVAL, kReadAndWrite, 7, disposition);
  for (const uint32_t flag : {0x2u, 0x4u, 0x4000u, 0x200000u, 0x02000000u}) {
    ExpectRefused(EINVAL, kReadAndWrite, 7, kOpenAlways, flag);
  }
  ExpectRefused(EINVAL, kToRead, 7, 5);  // emptying needs the right to write
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(LinuxDirectIO, AcceptsRightsThatMeanNothingHere) {
  for (const uint32_t right : {0x80u, 0x100u, 0x10000u, 0x20000u, 0x100000u}) {
    Close(Open(kReadAndWrite | right, 7, kOpenAlways));
  }
}

TEST_F(LinuxDirectIO, AcceptsHints) {
  for (const uint32_t flag :
       {0x20u, 0x80u, 0x100u, 0x2000u, 0x01000000u, 0x08000000u, 0x10000000u}) {
    Close(Open(kReadAndWrite, 7, kOpenAlways, flag));
  }
}

TEST_F(LinuxDirectIO, MakesOpensAndEmptiesByTheDisposition) {
  constexpr uint32_t kMakeNew = 1;
  constexpr uint32_t kMakeEmpty = 2;
  constexpr uint32_t kEmptyOnly = 5;
  ExpectRefused(ENOENT, kReadAndWrite, 7, kOpenExisting);
  ExpectRefused(ENOENT, kReadAndWrite, 7, kEmptyOnly);
  Close(Open(kReadAndWrite, 7, kMakeNew));
  ExpectRefused(EEXIST, kReadAndWrite, 7, kMakeNew);
  for (const uint32_t disposition : {kOpenExisting, kOpenAlways}) {
    folder_.Write("blocks", "content");
    Close(Open(kReadAndWrite, 7, disposition));
    EXPECT_EQ(Size(), 7u);
  }
  for (const uint32_t disposition : {kMakeEmpty, kEmptyOnly}) {
    folder_.Write("blocks", "content");
    Close(Open(kReadAndWrite, 7, disposition));
    EXPECT_EQ(Size(), 0u);
  }
  folder_.Write("blocks", "content");
  Close(Open(kToRead, 7, kMakeEmpty));
  EXPECT_EQ(Size(), 0u);
}

TEST_F(LinuxDirectIO, TranslatesWriteThroughAndBypassesTheCache) {
  const uint32_t before = OpenDescriptors();
  const uint32_t file = Open(kReadAndWrite, 7, kOpenAlways, 0x80000000);
  ASSERT_EQ(OpenDescriptors(), before + 1);
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code none;
    if (std::filesystem::read_symlink(entry.path(), none) != path()) continue;
    const int descriptor = std::atoi(entry.path().filename().c_str());
    const int flags = fcntl(descriptor, F_GETFL);
    EXPECT_EQ(flags & (O_DIRECT | O_DSYNC), O_DIRECT | O_DSYNC);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  }
  Close(file);
}

TEST_F(LinuxDirectIO, DeletesOnCloseAndMakesReadOnlyFiles) {
  Close(Open(kReadAndWrite, 7, kOpenAlways, 0x04000000));
  EXPECT_FALSE(std::filesystem::exists(path()));
  Close(Open(kReadAndWrite, 7, kOpenAlways, 1));
  ExpectRefused(EACCES, kReadAndWrite, 7, kOpenExisting);
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileRemove(ctx_, path().c_str()), KIV_ST_FILE_REMOVE, EACCES);
}

TEST_F(LinuxDirectIO, SharesFilesWithDescriptorsByTheSameRules) {
  const uint32_t file = Open(kReadAndWrite, 1, kOpenAlways);  // others may read
  uint32_t descriptor = 0;
  CHECK_OUTCOME(ctx_, KivSdFileSOpen(ctx_, path().c_str(), 2, 0x40, 0, &descriptor),
                KIV_ST_FILE_SHARING, EBUSY);
  CHECK_OK(ctx_, KivSdFileSOpen(ctx_, path().c_str(), 0, 0x40, 0, &descriptor));
  ExpectRefused(EBUSY, kToRead, 0, kOpenExisting);
  Close(file);
  ExpectRefused(EBUSY, kToRead, 0, kOpenExisting);
  CHECK_OK(ctx_, KivSdFileClose(ctx_, descriptor));
  Close(Open(kToRead, 0, kOpenExisting));
}

TEST_F(LinuxDirectIO, OpensNoFileInMemory) {
  const std::string shared = "/dev/shm/kivsdu-direct-io-test";
  std::ofstream(shared).put('x');
  uint32_t file = kUntouched;
  CHECK_OUTCOME(ctx_,
                KivSdDirectIOFileOpen(ctx_, shared.c_str(), kReadAndWrite, 7, kOpenExisting,
                                      nullptr, 0, &file),
                KIV_ST_FILE_CREATE, EINVAL);
  EXPECT_EQ(file, KIV_DIRECTIO_NONE);
  std::filesystem::remove(shared);
}

// ---- Handles ----

TEST_F(LinuxDirectIO, RefusesHandlesThatAreNoneOfItsOwn) {
  KivHandle event = nullptr;
  ASSERT_EQ(KivSdEventCreate(nullptr, &event), KIV_ST_OK);
  const uint32_t closed = Open(kReadAndWrite, 7, kOpenAlways);
  Close(closed);
  const auto other = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(event));
  Blocks blocks(1);
  for (const uint32_t file : {0u, 1u, 3u, closed, other, 0x7FFFFFFFu, KIV_DIRECTIO_NONE}) {
    SCOPED_TRACE(file);
    uint32_t out = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdDirectIOFileRead(ctx_, file, 0, blocks.At(0), 1, nullptr, &out),
                  KIV_ST_DIRECT_POINTER_SET, EBADF);
    CHECK_OUTCOME(ctx_, KivSdDirectIOFileWrite(ctx_, file, 0, blocks.At(0), 1, nullptr, &out),
                  KIV_ST_FILE_WRITE, EBADF);
    CHECK_OUTCOME(ctx_, KivSdDirectIOFileSize(ctx_, file, &out), KIV_ST_FILE_LENGTH, EBADF);
    CHECK_OUTCOME(ctx_, KivSdDirectIOFileClose(ctx_, file), KIV_ST_FILE_CLOSE, EBADF);
  }
  EXPECT_EQ(KivSdEventClose(nullptr, &event), KIV_ST_OK);
}

TEST_F(LinuxDirectIO, TransfersOnlyInTheOpenedDirection) {
  folder_.Write("blocks", std::string(kBlockBytes, 'x'));
  Blocks blocks(1);
  uint32_t count = 0;
  uint32_t file = Open(kToRead, 7, kOpenExisting);
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileWrite(ctx_, file, 0, blocks.At(0), 1, nullptr, &count),
                KIV_ST_FILE_WRITE, EBADF);
  Close(file);
  file = Open(kToWrite, 7, kOpenExisting);
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileRead(ctx_, file, 0, blocks.At(0), 1, nullptr, &count),
                KIV_ST_FILE_READ, EBADF);
  Close(file);
  file = Open(0, 7, kOpenExisting);
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileRead(ctx_, file, 0, blocks.At(0), 1, nullptr, &count),
                KIV_ST_FILE_READ, EBADF);
  CHECK_OK(ctx_, KivSdDirectIOFileSize(ctx_, file, &count));
  EXPECT_EQ(count, 1u);
  Close(file);
}

TEST_F(LinuxDirectIO, RefusesPositionsBeyondFourGibibytes) {
  const uint32_t file = Open(kReadAndWrite, 7, kOpenAlways);
  ASSERT_EQ(truncate(path().c_str(), (int64_t{1} << 32) + kBlockBytes), 0);
  uint32_t position = kUntouched;
  CHECK_OK(ctx_, KivSdDirectIOFilePointerSet(ctx_, file, 3, 0, &position));
  CHECK_OUTCOME(ctx_, KivSdDirectIOFilePointerSet(ctx_, file, 0, 2, &position),
                KIV_ST_DIRECT_POINTER_SET, EOVERFLOW);
  CHECK_OK(ctx_, KivSdDirectIOFilePointerGet(ctx_, file, &position));
  EXPECT_EQ(position, 3u);
  Close(file);
}

// A file that was made larger has its blocks: writing into it cannot find the disk full.
TEST_F(LinuxDirectIO, AllocatesAFileThatGrows) {
  const uint32_t file = Open(kReadAndWrite, 7, kOpenAlways);
  uint32_t size = 0;
  CHECK_OK(ctx_, KivSdDirectIOFileSetEndOfFile(ctx_, file, 64, &size));
  struct stat status = {};
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_GE(status.st_blocks * 512, int64_t{64} * kBlockBytes);
  Close(file);
}

// ---- Transfers in the background ----

// Containers often forbid io_uring. A kernel that permits the call refuses a ring without entries.
bool PermitsRings() {
  unsigned char parameters[256] = {};
  return syscall(SYS_io_uring_setup, 0, parameters) == -1 && errno == EINVAL;
}

TEST_F(LinuxDirectIO, UsesTheServiceThatIsAskedFor) {
  const char* asked = std::getenv("KIVSDU_ASYNC_IO");
  const std::string used = kiv::os::AsyncBackend();
  if (asked != nullptr) {
    if (asked == std::string("io_uring") && !PermitsRings()) {
      GTEST_SKIP() << "this kernel forbids io_uring";
    }
    EXPECT_EQ(used, asked);
  } else {
    EXPECT_TRUE(used == "io_uring" || used == "aio") << used;
  }
}

class Background : public LinuxDirectIO {
 protected:
  Background() : file_(std::make_unique<DirectFile>(path(), kOverlapped)) {}
  ~Background() override { file_.reset(); }

  // Whether the write is pending, as it is unless the kernel has no service for it.
  void Start(uint32_t block, void* bytes, uint32_t count, KivSdNoWaitCb* record) {
    uint32_t written = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdDirectIOFileWrite(ctx_, *file_, block, bytes, count, record, &written),
                  KIV_ST_DIRECT_WRITE_PENDING, kTransferPending);
    EXPECT_EQ(written, 0u);
  }

  void Collect(KivSdNoWaitCb* record) {
    uint32_t done = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOWait(ctx_, *file_, record, &done));
    EXPECT_EQ(done, 1u);
  }

  std::unique_ptr<DirectFile> file_;
};

TEST_F(Background, RunsAThousandTransfersAtOnce) {
  constexpr uint32_t kCount = 1024;
  Records<kCount> records;
  Blocks blocks(kCount);
  for (uint32_t i = 0; i < kCount; ++i) {
    blocks.Fill(i, i);
    Start(i, blocks.At(i), 1, &records[i]);
  }
  for (uint32_t i = kCount; i-- > 0;) Collect(&records[i]);
  for (uint32_t i = 0; i < kCount; i += 97) EXPECT_TRUE(DirectFile(path()).Holds(i, i)) << i;
}

TEST_F(Background, WaitsForRoomIfTheKernelTakesNoMore) {
  constexpr uint32_t kCount = 6000;  // more than either service takes
  std::vector<KivSdNoWaitCb> records(kCount);
  ASSERT_EQ(KivSdDirectIONoWaitCbsInit(nullptr, records.data(), kCount), KIV_ST_OK);
  Blocks block(1);
  block.Fill(0, 7);
  for (uint32_t i = 0; i < kCount; ++i) Start(i % 64, block.At(0), 1, &records[i]);
  for (KivSdNoWaitCb& record : records) Collect(&record);
  EXPECT_TRUE(DirectFile(path()).Holds(63, 7));
  EXPECT_EQ(KivSdDirectIONoWaitCbsTerm(nullptr, records.data(), kCount), KIV_ST_OK);
}

TEST_F(Background, EndsEvenIfTheFileIsClosedMeanwhile) {
  constexpr uint32_t kCount = 64;
  Records<kCount> records;
  Blocks blocks(kCount);
  for (uint32_t i = 0; i < kCount; ++i) {
    blocks.Fill(i, i);
    Start(i, blocks.At(i), 1, &records[i]);
  }
  const uint32_t closed = *file_;
  file_.reset();
  for (uint32_t i = 0; i < kCount; ++i) {
    uint32_t done = 0;
    CHECK_OK(ctx_, KivSdDirectIOWait(ctx_, closed, &records[i], &done));
    EXPECT_EQ(done, 1u);
  }
  file_ = std::make_unique<DirectFile>(path(), 0);
  for (uint32_t i = 0; i < kCount; ++i) EXPECT_TRUE(DirectFile(path()).Holds(i, i)) << i;
}

// A thread that only tests the event again and again must see the end too.
TEST_F(Background, IsSeenByTestsOfTheEventAlone) {
  Records<1> records;
  Blocks block(1);
  for (uint32_t round = 0; round < 50; ++round) {
    Start(0, block.At(0), 1, &records[0]);
    const Stopwatch watch;
    while (!IsSignalled(records[0]) && watch.ElapsedMs() < kLimitMs) std::this_thread::yield();
    ASSERT_TRUE(IsSignalled(records[0]));
    Collect(&records[0]);
  }
}

TEST_F(Background, WakesAThreadThatWaitedBeforeTheTransferBegan) {
  Blocks block(1);
  for (uint32_t round = 0; round < 20; ++round) {
    Records<1> records;
    std::thread waiter([&] { EXPECT_TRUE(IsSignalled(records[0], kLimitMs)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(round % 4));
    Start(0, block.At(0), 1, &records[0]);
    waiter.join();
    Collect(&records[0]);
  }
}

TEST_F(Background, IsCollectedByManyThreadsInAnyOrder) {
  constexpr uint32_t kThreads = 4;
  constexpr uint32_t kEach = 16;
  for (uint32_t round = 0; round < 20; ++round) {
    Records<kThreads * kEach> records;
    Blocks blocks(kThreads * kEach);
    for (uint32_t i = 0; i < kThreads * kEach; ++i) Start(i, blocks.At(i), 1, &records[i]);
    std::vector<std::thread> threads;
    for (uint32_t thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (uint32_t i = kEach; i-- > 0;) {
          uint32_t done = 0;
          EXPECT_EQ(KivSdDirectIOWait(nullptr, *file_, &records[i * kThreads + thread], &done),
                    KIV_ST_OK);
          EXPECT_EQ(done, 1u);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
}

// Threads that each start and collect their own transfers wait for each other's ends.
TEST_F(Background, IsSharedByThreadsThatStartAndCollect) {
  constexpr uint32_t kThreads = 4;
  std::vector<std::thread> threads;
  for (uint32_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      Records<4> records;
      Blocks blocks(4);
      for (uint32_t round = 0; round < 100; ++round) {
        for (uint32_t i = 0; i < 4; ++i) {
          uint32_t count = 0;
          const uint32_t status = KivSdDirectIOFileWrite(nullptr, *file_, thread * 4 + i,
                                                         blocks.At(i), 1, &records[i], &count);
          EXPECT_EQ(status, KIV_ST_DIRECT_WRITE_PENDING);
        }
        for (uint32_t i = 0; i < 4; ++i) {
          uint32_t done = 0;
          EXPECT_EQ(KivSdDirectIOWait(nullptr, *file_, &records[i], &done), KIV_ST_OK);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// The host signals a record's event itself. Transfers of other records are pending, and the waiting
// thread may be the one that sleeps in the kernel for them.
TEST_F(Background, LetsTheHostSignalAnEventThatATransferHolds) {
  Records<2> records;
  Blocks blocks(2);
  for (uint32_t round = 0; round < 50; ++round) {
    Start(0, blocks.At(0), 1, &records[0]);
    std::thread waiter([&] { EXPECT_TRUE(IsSignalled(records[0], kLimitMs)); });
    EXPECT_EQ(KivSdEventClear(nullptr, &records[0].event), KIV_ST_OK);  // signals it
    waiter.join();
    uint32_t done = 0;
    // The transfer may be pending still: then it is collected once more.
    const Stopwatch watch;
    while (records[0].internalStatus == kTransferPending && watch.ElapsedMs() < kLimitMs) {
      static_cast<void>(KivSdDirectIOWait(nullptr, *file_, &records[0], &done));
    }
    static_cast<void>(KivSdEventSet(nullptr, &records[0].event));
  }
}

// A read of an empty pipe, which does not end before the test writes into the pipe.
class EndlessRead {
 public:
  explicit EndlessRead(KivSdNoWaitCb* record) : record_(record) {
    EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
    const kiv::os::Result started = kiv::os::StartTransfer(ends_[0], {true, &byte_, 1, record});
    EXPECT_EQ(started.error, kTransferPending);
  }
  ~EndlessRead() {
    EXPECT_EQ(write(ends_[1], "x", 1), 1);
    const Stopwatch watch;
    while (record_->internalBytes != 1 && watch.ElapsedMs() < kLimitMs) {
      kiv::os::CollectEndedTransfers();
    }
    close(ends_[0]);
    close(ends_[1]);
  }
  EndlessRead(const EndlessRead&) = delete;
  EndlessRead& operator=(const EndlessRead&) = delete;

 private:
  KivSdNoWaitCb* record_;
  int ends_[2] = {-1, -1};
  char byte_ = 0;
};

bool CanReadPipes() { return std::string(kiv::os::AsyncBackend()) == "io_uring"; }

TEST_F(Background, TimesOutWhileNothingEnds) {
  if (!CanReadPipes()) GTEST_SKIP() << "only io_uring reads a pipe in the background";
  Records<1> records;
  const EndlessRead pending(&records[0]);
  const Stopwatch watch;
  CHECK_OUTCOME(ctx_, KivSdEventWait(ctx_, &records[0].event, kShortMs), KIV_ST_EVENT_TIMEOUT,
                258u);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
}

// The waiting threads sleep in the kernel for the transfer, or for the thread that does.
TEST_F(Background, DoesNotHoldBackASignalOfTheHost) {
  if (!CanReadPipes()) GTEST_SKIP() << "only io_uring reads a pipe in the background";
  Records<2> records;
  const EndlessRead first(&records[0]);
  const EndlessRead second(&records[1]);
  std::atomic<uint32_t> woken{0};
  const auto wait = [&](uint32_t record) {
    if (IsSignalled(records[record], kLimitMs / 2)) ++woken;
  };
  const Stopwatch watch;
  std::thread one(wait, 0);
  std::thread other(wait, 1);
  std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
  EXPECT_EQ(woken, 0u);
  for (const uint32_t i : {0u, 1u}) {
    EXPECT_EQ(KivSdEventClear(nullptr, &records[i].event), KIV_ST_OK);  // signals it
  }
  one.join();
  other.join();
  EXPECT_EQ(woken, 2u);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs / 2);
}

TEST_F(Background, ReportsTheKernelsErrors) {
  Records<1> records;
  Blocks blocks(2);
  uint32_t count = kUntouched;
  uint32_t status =
      KivSdDirectIOFileWrite(ctx_, *file_, 0, blocks.At(0) + 1, 1, &records[0], &count);
  if (status == KIV_ST_DIRECT_WRITE_PENDING) {
    status = KivSdDirectIOWait(ctx_, *file_, &records[0], &count);
    EXPECT_EQ(status, KIV_ST_DIRECT_COMPLETION);
  } else {
    EXPECT_EQ(status, KIV_ST_DIRECT_WRITE);
  }
  EXPECT_EQ(ctx_.osError(), static_cast<uint32_t>(EINVAL));
  EXPECT_EQ(count, 0u);
}

TEST_F(Background, RefusesARecordWhoseEventIsClosed) {
  KivSdNoWaitCb record = {};
  Blocks block(1);
  ASSERT_EQ(KivSdDirectIONoWaitCbsInit(nullptr, &record, 1), KIV_ST_OK);
  ASSERT_EQ(KivSdDirectIONoWaitCbsTerm(nullptr, &record, 1), KIV_ST_OK);
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileWrite(ctx_, *file_, 0, block.At(0), 1, &record, &count),
                KIV_ST_DIRECT_WRITE, EBADF);
}

TEST_F(Background, NeedsARecordForEachRead) {
  Blocks block(1);
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileRead(ctx_, *file_, 0, block.At(0), 1, nullptr, &count),
                KIV_ST_FILE_READ, EINVAL);
  // A write without a record ends before the call does.
  CHECK_OK(ctx_, KivSdDirectIOFileWrite(ctx_, *file_, 0, block.At(0), 1, nullptr, &count));
  EXPECT_EQ(count, 1u);
}

TEST_F(Background, StartsAgainInAForkedChild) {
  constexpr uint32_t kCount = 8;
  Records<kCount> records;
  Blocks blocks(kCount);
  for (uint32_t i = 0; i < kCount; ++i) Start(i, blocks.At(i), 1, &records[i]);
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    KivSdNoWaitCb own[kCount] = {};
    uint32_t failures = 0;
    uint32_t count = 0;
    for (uint32_t i = 0; i < kCount; ++i) {
      static_cast<void>(
          KivSdDirectIOFileWrite(nullptr, *file_, 100 + i, blocks.At(i), 1, &own[i], &count));
    }
    for (KivSdNoWaitCb& record : own) {
      if (KivSdDirectIOWait(nullptr, *file_, &record, &count) != KIV_ST_OK) ++failures;
    }
    _exit(static_cast<int>(failures));
  }
  for (uint32_t i = 0; i < kCount; ++i) Collect(&records[i]);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
