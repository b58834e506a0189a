// Files on Linux: the words of an open bit by bit, read-only files, share modes of killed processes,
// signals, sizes that do not fit, and descriptors that belong to nobody.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/stream.h"
#include "support/temporary_folder.h"
#include "support/waiting.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kTemporary = 0x40;
constexpr uint32_t kNew = kBinary | kReadWrite | kCreate;

uint32_t OpenDescriptors() {
  uint32_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

class LinuxFile : public testing::Test {
 protected:
  ~LinuxFile() override { EXPECT_EQ(OpenDescriptors(), before_) << "descriptors were left open"; }

  std::string path() const { return folder_.Path("file"); }

  uint32_t Open(uint32_t flags, uint32_t permissions = kBothPermissions) {
    uint32_t file = kUntouched;
    CHECK_OK(ctx_, KivSdFileOpen(ctx_, path().c_str(), flags, permissions, &file));
    return file;
  }

  void Close(uint32_t file) { CHECK_OK(ctx_, KivSdFileClose(ctx_, file)); }

  void ExpectRefused(uint32_t flags, uint32_t error) {
    uint32_t file = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdFileOpen(ctx_, path().c_str(), flags, kBothPermissions, &file),
                  KIV_ST_FILE_OPEN, error);
    EXPECT_EQ(file, KIV_FILE_NONE);
  }

  mode_t Mode() const {
    struct stat status = {};
    EXPECT_EQ(stat(path().c_str(), &status), 0);
    return status.st_mode & 0777;
  }

  const uint32_t before_ = OpenDescriptors();
  TemporaryFolder folder_;
  Context ctx_;
};

// ---- Words ----

TEST_F(LinuxFile, RefusesOpenFlagsWithoutMeaning) {
  for (const uint32_t bit : {0x4u, 0x800u, 0x2000u, 0x10000u, 0x20000u, 0x40000u, 0x80000000u}) {
    SCOPED_TRACE(bit);
    ExpectRefused(kNew | bit, EINVAL);
  }
  ExpectRefused(kBinary | 3, EINVAL);
  ExpectRefused(kBinary | kTruncate, EINVAL);
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(LinuxFile, AcceptsHints) {
  for (const uint32_t bit : {0x10u, 0x20u, 0x80u, 0x1000u}) Close(Open(kNew | bit));
}

TEST_F(LinuxFile, RefusesUnknownShareFlags) {
  folder_.Write("file", "");
  for (const uint32_t share : {0u, 1u, 0x11u, 0x50u, 0xFFu}) {
    uint32_t file = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdFileSOpen(ctx_, path().c_str(), kReadWrite, share, 0, &file),
                  KIV_ST_FILE_SHARE_OPEN, EINVAL);
  }
}

TEST_F(LinuxFile, IsNotInheritedByPrograms) {
  const uint32_t file = Open(kNew);
  EXPECT_EQ(fcntl(static_cast<int>(file), F_GETFD), FD_CLOEXEC);
  Close(file);
}

TEST_F(LinuxFile, MadeWithoutThePermissionToWriteIsReadOnly) {
  const mode_t mask = umask(022);
  for (const uint32_t permissions : {0u, 0x100u}) {
    const uint32_t file = Open(kNew, permissions);
    uint32_t count = 0;
    CHECK_OK(ctx_, KivSdFileWrite(ctx_, file, "x", 1, &count));
    Close(file);
    EXPECT_EQ(Mode(), 0444u);
    ExpectRefused(kBinary | kReadWrite, EACCES);
    ExpectRefused(kBinary | kWriteOnly, EACCES);
    Close(Open(kBinary));
    CHECK_OUTCOME(ctx_, KivSdFileRemove(ctx_, path().c_str()), KIV_ST_FILE_REMOVE, EACCES);
    folder_.Remove("file");
  }
  for (const uint32_t permissions : {0x80u, 0x180u, 0x1B6u}) {
    Close(Open(kNew, permissions));
    EXPECT_EQ(Mode(), 0644u);
    folder_.Remove("file");
  }
  umask(mask);
}

TEST_F(LinuxFile, ThatIsTemporaryIsRemovedWhenItIsClosed) {
  const uint32_t file = Open(kNew | kTemporary);
  EXPECT_TRUE(std::filesystem::exists(path()));
  std::filesystem::rename(path(), folder_.Path("renamed"));
  folder_.Write("file", "another");
  Close(file);
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("renamed")));
  EXPECT_EQ(ContentOf(path()), "another");
}

// Otherwise text that is written at the end would lie behind the mark.
TEST_F(LinuxFile, OfTextLosesItsEndMarkWhenItIsOpenedForReadingAndWriting) {
  folder_.Write("file", "text\x1A");
  Close(Open(kText));
  EXPECT_EQ(ContentOf(path()), "text\x1A");
  Close(Open(kText | kReadWrite));
  EXPECT_EQ(ContentOf(path()), "text");
  Close(Open(kText | kReadWrite));
  EXPECT_EQ(ContentOf(path()), "text");
}

// Temporary names lie in the first of TMP, TMPDIR and /tmp that is a folder.
TEST(TemporaryFolderOfNames, IsTheFirstOfTheEnvironment) {
  const TemporaryFolder one;
  const TemporaryFolder other;
  one.Write("file", "");
  const auto folderOfName = [] {
    char name[KIV_SYSTEM_PATH_MAX] = {};
    EXPECT_EQ(KivSdFileTempNameGet(nullptr, "tm", name), KIV_ST_OK);
    return std::filesystem::path(name).parent_path();
  };
  setenv("TMP", one.Path("file").c_str(), 1);
  setenv("TMPDIR", other.Path().c_str(), 1);
  EXPECT_EQ(folderOfName().string() + "/", other.Path());
  setenv("TMP", one.Path().c_str(), 1);
  EXPECT_EQ(folderOfName().string() + "/", one.Path());
  unsetenv("TMP");
  unsetenv("TMPDIR");
  EXPECT_EQ(folderOfName(), "/tmp");
}

TEST_F(LinuxFile, OpenedToAppendIsStillWrittenAtAnOffset) {
  folder_.Write("file", "0123456789");
  const uint32_t file = Open(kBinary | kReadWrite | kAppend);
  uint32_t count = 0;
  CHECK_OK(ctx_, KivSdFilePWrite(ctx_, file, "ab", 2, 2, &count, nullptr));
  EXPECT_EQ(ContentOf(path()), "01ab456789");
  CHECK_OK(ctx_, KivSdFileWrite(ctx_, file, "!", 1, &count));
  EXPECT_EQ(ContentOf(path()), "01ab456789!");
  Close(file);
}

TEST_F(LinuxFile, AppendedByManyThreadsLosesNothing) {
  constexpr uint32_t kThreads = 4;
  constexpr uint32_t kLines = 500;
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      uint32_t file = 0;
      ASSERT_EQ(KivSdFileOpen(nullptr, path().c_str(), kNew | kAppend, kBothPermissions, &file),
                KIV_ST_OK);
      for (uint32_t line = 0; line < kLines; ++line) {
        uint32_t count = 0;
        EXPECT_EQ(KivSdFileWrite(nullptr, file, "12345678", 8, &count), KIV_ST_OK);
      }
      EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::filesystem::file_size(path()), uint64_t{8} * kThreads * kLines);
}

TEST_F(LinuxFile, ThatIsAFolderIsNotOpened) {
  uint32_t file = kUntouched;
  for (const uint32_t access : {kReadOnly, kReadWrite}) {
    CHECK_OUTCOME(ctx_, KivSdFileOpen(ctx_, folder_.Path().c_str(), access, 0, &file),
                  KIV_ST_FILE_OPEN, EISDIR);
  }
}

TEST_F(LinuxFile, IsMadeThroughALinkToAMissingFile) {
  std::filesystem::create_symlink(path(), folder_.Path("link"));
  uint32_t file = 0;
  CHECK_OK(ctx_, KivSdFileOpen(ctx_, folder_.Path("link").c_str(), kNew, kBothPermissions, &file));
  Close(file);
  EXPECT_TRUE(std::filesystem::exists(path()));
}

// ---- Share modes ----

// {path, share flags, access, ready}: holds a file until it is killed.
const RegisteredRole holder("holder", [](const RoleArguments& arguments) {
  uint32_t file = 0;
  EXPECT_EQ(KivSdFileSOpen(nullptr, arguments.at(0).c_str(),
                           kBinary | static_cast<uint32_t>(std::stoul(arguments.at(2))),
                           static_cast<uint32_t>(std::stoul(arguments.at(1))), 0, &file),
            KIV_ST_OK);
  SharedSignal(arguments.at(3)).Set();
  std::this_thread::sleep_for(std::chrono::milliseconds(kLimitMs));
  return kRoleOutlived;
});

TEST_F(LinuxFile, OfAKilledProcessIsFree) {
  folder_.Write("file", "content");
  for (const uint32_t access : {kReadOnly, kWriteOnly, kReadWrite}) {
    SCOPED_TRACE(access);
    const SharedSignal ready(UniqueName("ready"));
    const ChildProcess child(
        "holder", {path(), std::to_string(kDenyAll), std::to_string(access), ready.name()});
    ready.Await();
    uint32_t status = 0;
    CHECK_OK(ctx_, KivSdFileGetStatus(ctx_, path().c_str(), &status));
    EXPECT_EQ(status, KIV_FSTAT_INUSE);
    child.Kill();
    EXPECT_EQ(child.ExitCode(), kKilled);
    CHECK_OK(ctx_, KivSdFileGetStatus(ctx_, path().c_str(), &status));
    EXPECT_EQ(status, KIV_FSTAT_FREE);
  }
}

// Every pair of access and share flags, in one process: the second open succeeds exactly if neither
// denies what the other does.
TEST_F(LinuxFile, IsSharedAsBothOpensAllow) {
  folder_.Write("file", "content");
  const uint32_t accesses[] = {kReadOnly, kWriteOnly, kReadWrite};
  const uint32_t shares[] = {kDenyAll, kDenyWrite, kDenyRead, kDenyNone};
  const auto reads = [](uint32_t access) { return access != kWriteOnly; };
  const auto writes = [](uint32_t access) { return access != kReadOnly; };
  const auto denies = [&](uint32_t share, uint32_t access) {
    return (reads(access) && (share == kDenyAll || share == kDenyRead)) ||
           (writes(access) && (share == kDenyAll || share == kDenyWrite));
  };
  for (const uint32_t first : accesses) {
    for (const uint32_t firstShare : shares) {
      uint32_t held = 0;
      ASSERT_EQ(KivSdFileSOpen(nullptr, path().c_str(), kBinary | first, firstShare, 0, &held),
                KIV_ST_OK);
      for (const uint32_t second : accesses) {
        for (const uint32_t secondShare : shares) {
          SCOPED_TRACE(testing::Message()
                       << first << ' ' << firstShare << ' ' << second << ' ' << secondShare);
          uint32_t file = 0;
          const uint32_t status =
              KivSdFileSOpen(nullptr, path().c_str(), kBinary | second, secondShare, 0, &file);
          const bool conflict = denies(firstShare, second) || denies(secondShare, first);
          EXPECT_EQ(status, conflict ? KIV_ST_FILE_SHARING : KIV_ST_OK);
          if (status == KIV_ST_OK) Close(file);
        }
      }
      Close(held);
    }
  }
}

TEST_F(LinuxFile, ThatIsDeniedToOthersKeepsItsContent) {
  folder_.Write("file", "content");
  uint32_t held = 0;
  ASSERT_EQ(KivSdFileSOpen(nullptr, path().c_str(), kBinary, kDenyWrite, 0, &held), KIV_ST_OK);
  ExpectRefused(kBinary | kWriteOnly | kTruncate, EBUSY);
  ExpectRefused(kNew | kTruncate, EBUSY);
  EXPECT_EQ(ContentOf(path()), "content");
  Close(held);
}

// One of two that open the file for themselves at the same moment succeeds, in every round.
TEST_F(LinuxFile, IsOpenedByOneOfTwoThatDenyAllAtOnce) {
  folder_.Write("file", "content");
  for (uint32_t round = 0; round < 200; ++round) {
    std::atomic<uint32_t> ready{0};
    std::atomic<uint32_t> tried{0};
    std::atomic<uint32_t> opened{0};
    const auto open = [&] {
      uint32_t file = 0;
      ++ready;
      while (ready < 2) {
      }
      const uint32_t status =
          KivSdFileSOpen(nullptr, path().c_str(), kBinary | kReadWrite, kDenyAll, 0, &file);
      if (status == KIV_ST_OK) ++opened;
      ++tried;
      while (tried < 2) std::this_thread::yield();
      if (status == KIV_ST_OK) EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
    };
    std::thread other(open);
    open();
    other.join();
    ASSERT_EQ(opened, 1u) << "round " << round;
  }
}

// ---- Signals ----

// Writes to a pipe without a reader, which it closes.
void ExpectNoSignalFromWriting(uint32_t file) {
  Context ctx;
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdFileWrite(ctx, file, "x", 1, &count), KIV_ST_FILE_WRITE, EPIPE);
  EXPECT_EQ(count, 0xFFFFFFFFu);
  sigset_t waiting;
  sigpending(&waiting);
  EXPECT_EQ(sigismember(&waiting, SIGPIPE), 0) << "the signal must not come later either";
  CHECK_OK(ctx, KivSdFileClose(ctx, file));
}

TEST_F(LinuxFile, ThatIsAPipeWithoutAReaderRaisesNoSignal) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  ExpectNoSignalFromWriting(static_cast<uint32_t>(ends[1]));
}

TEST_F(LinuxFile, ThatIsANamedPipeWithoutAReaderRaisesNoSignalInTextMode) {
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  const int reader = open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_NE(reader, -1);
  const uint32_t file = Open(kText | kWriteOnly);
  close(reader);
  ExpectNoSignalFromWriting(file);
}

std::atomic<uint32_t> signals;
void CountSignal(int) { ++signals; }

TEST_F(LinuxFile, IsReadOnAfterASignal) {
  struct sigaction interrupting = {};
  interrupting.sa_handler = CountSignal;  // without SA_RESTART
  struct sigaction before;
  ASSERT_EQ(sigaction(SIGUSR1, &interrupting, &before), 0);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  signals = 0;
  uint32_t count = kUntouched;
  char byte = '?';
  std::atomic<bool> done{false};
  std::thread reader([&] {
    EXPECT_EQ(KivSdFileRead(nullptr, static_cast<uint32_t>(ends[0]), &byte, 1, &count), KIV_ST_OK);
    done = true;
  });
  while (signals < 20) {
    pthread_kill(reader.native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_FALSE(done);
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  reader.join();
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(byte, 'x');
  close(ends[0]);
  close(ends[1]);
  sigaction(SIGUSR1, &before, nullptr);
}

// ---- Limits ----

TEST_F(LinuxFile, OnAFullDiskReportsItOnEveryPath) {
  const int full = open("/dev/full", O_RDWR | O_CLOEXEC);
  ASSERT_NE(full, -1);
  const auto file = static_cast<uint32_t>(full);
  uint32_t count = kUntouched;
  uint32_t osError = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileWrite(ctx_, file, "x", 1, &count), KIV_ST_DISK_FULL, ENOSPC);
  CHECK_OUTCOME(ctx_, KivSdFilePWrite(ctx_, file, "x", 0, 1, &count, &osError), KIV_ST_DISK_FULL,
                ENOSPC);
  EXPECT_EQ(osError, static_cast<uint32_t>(ENOSPC));
  close(full);

  uint32_t text = 0;
  CHECK_OK(ctx_, KivSdFileOpen(ctx_, "/dev/full", kText | kWriteOnly, 0, &text));
  CHECK_OUTCOME(ctx_, KivSdFileWrite(ctx_, text, "x\n", 2, &count), KIV_ST_DISK_FULL, ENOSPC);
  EXPECT_EQ(count, 0xFFFFFFFFu);
  Close(text);
}

TEST_F(LinuxFile, ThatWouldGrowBeyondTheProcesssLimitKeepsItsSize) {
  struct sigaction ignoring = {};
  ignoring.sa_handler = SIG_IGN;
  struct sigaction before;
  sigaction(SIGXFSZ, &ignoring, &before);
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  rlimit small = limit;
  small.rlim_cur = 1000;
  folder_.Write("file", "content");
  const uint32_t file = Open(kBinary | kReadWrite);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  uint32_t newLength = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileSetEndOfFile(ctx_, file, 2000, &newLength, nullptr),
                KIV_ST_DIRECT_SET_END, EFBIG);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_EQ(newLength, 0u);
  EXPECT_EQ(ContentOf(path()), "content");
  Close(file);
  sigaction(SIGXFSZ, &before, nullptr);
}

TEST_F(LinuxFile, BeyondTwoGibibytesHasNoPositionAndLengthIn32Bits) {
  const uint32_t file = Open(kNew);
  ASSERT_EQ(ftruncate(static_cast<int>(file), int64_t{1} << 31), 0);
  uint32_t value = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileLength(ctx_, file, &value), KIV_ST_FILE_LENGTH, EOVERFLOW);
  EXPECT_EQ(value, 0xFFFFFFFFu);
  CHECK_OK(ctx_, KivSdFileLSeek(ctx_, file, 5, kFromStart, &value));
  CHECK_OUTCOME(ctx_, KivSdFileLSeek(ctx_, file, 0, kFromEnd, &value), KIV_ST_FILE_SEEK, EOVERFLOW);
  EXPECT_EQ(value, 0xFFFFFFFFu);
  CHECK_OK(ctx_, KivSdFileTell(ctx_, file, &value));
  EXPECT_EQ(value, 5u) << "a seek that fails must not move the position";
  CHECK_OK(ctx_, KivSdFileLSeek64(ctx_, file, 0, kFromEnd, nullptr));
  CHECK_OUTCOME(ctx_, KivSdFileTell(ctx_, file, &value), KIV_ST_FILE_TELL, EOVERFLOW);
  Close(file);
}

TEST_F(LinuxFile, OfTheHostIsBinary) {
  folder_.Write("file", "a\r\n");
  const int own = open(path().c_str(), O_RDONLY | O_CLOEXEC);
  char bytes[8];
  uint32_t count = 0;
  CHECK_OK(ctx_, KivSdFileRead(ctx_, static_cast<uint32_t>(own), bytes, sizeof bytes, &count));
  EXPECT_EQ(count, 3u);
  close(own);
}

TEST_F(LinuxFile, ThatIsNoDescriptorIsRefused) {
  uint32_t value = 0;
  for (const uint32_t file : {100000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu}) {
    char byte = 0;
    CHECK_OUTCOME(ctx_, KivSdFileRead(ctx_, file, &byte, 1, &value), KIV_ST_FILE_READ, EBADF);
    CHECK_OUTCOME(ctx_, KivSdFilePWrite(ctx_, file, &byte, 0, 1, &value, nullptr), KIV_ST_FILE_READ,
                  EBADF);
    CHECK_OUTCOME(ctx_, KivSdFileFlush(ctx_, file), KIV_ST_FILE_FLUSH, EBADF);
    CHECK_OUTCOME(ctx_, KivSdFileSetEndOfFile(ctx_, file, 0, nullptr, nullptr),
                  KIV_ST_DIRECT_SET_END, EBADF);
    CHECK_OUTCOME(ctx_, KivSdFileClose(ctx_, file), KIV_ST_FILE_CLOSE, EBADF);
  }
}

// ---- Text from a pipe, which has no position ----

TEST_F(LinuxFile, ThatIsAPipeOfTextKeepsTheByteBehindACarriageReturn) {
  const std::string pipe = folder_.Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int writer = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  uint32_t reader = 0;
  CHECK_OK(ctx_, KivSdFileOpen(ctx_, pipe.c_str(), kText, 0, &reader));
  char bytes[8] = {};
  uint32_t count = 0;
  ASSERT_EQ(write(writer, "a\rb\r\nc\r\n", 8), 8);
  CHECK_OK(ctx_, KivSdFileRead(ctx_, reader, bytes, 2, &count));
  EXPECT_EQ(std::string(bytes, count), "a\r");
  CHECK_OK(ctx_, KivSdFileRead(ctx_, reader, bytes, 2, &count));
  EXPECT_EQ(std::string(bytes, count), "b\n");
  CHECK_OK(ctx_, KivSdFileRead(ctx_, reader, bytes, 8, &count));
  EXPECT_EQ(std::string(bytes, count), "c\n");
  Close(reader);
  close(writer);
}

}  // namespace
