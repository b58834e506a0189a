// Files on Linux: rare answers of the system's calls, from file systems and kernels that the tests'
// machine does not have, and a full table of handles or descriptors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <linux/stat.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "kivsdu/directio.h"
#include "kivsdu/filesearch.h"
#include "os/descriptors.h"
#include "os/direct_files.h"
#include "os/file_names.h"
#include "os/file_search.h"
#include "os/heap.h"
#include "os/kernel_objects.h"
#include "os/links.h"
#include "os/lnx/descriptor_modes.h"
#include "os/lnx/raw_transfers.h"
#include "os/lnx/share_claims.h"
#include "os/lnx/system_file.h"
#include "os/transfers.h"
#include "support/lnx/answered_calls.h"
#include "support/lnx/os_results.h"
#include "support/open_handles.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::os;
using namespace kiv::test;

// Open flags and permissions of the runtime.
constexpr uint32_t kReadOnly = 0x0000;
constexpr uint32_t kReadWrite = 0x0002;
constexpr uint32_t kAppend = 0x0008;
constexpr uint32_t kTemporary = 0x0040;
constexpr uint32_t kCreate = 0x0100;
constexpr uint32_t kEmpty = 0x0200;
constexpr uint32_t kText = 0x4000;
constexpr uint32_t kBinary = 0x8000;
constexpr uint32_t kMayWrite = 0x180;

void ExpectCount(const ValueResult<uint32_t>& result, uint32_t count) {
  EXPECT_TRUE(result.ok) << "error " << result.error;
  EXPECT_EQ(result.value, count);
}

// The first handle and the first descriptor each make a chunk of a table. The chunks stay.
class FirstHandle : public testing::Environment {
 public:
  void SetUp() override { ExpectOk(CloseObject(MakeManualEvent().value)); }
};
const testing::Environment* const kFirstHandle = testing::AddGlobalTestEnvironment(new FirstHandle);

class FileCalls : public testing::Test {
 protected:
  FileCalls() : before_(OpenHandles()) {}
  ~FileCalls() override { EXPECT_EQ(OpenHandles(), before_) << "handles were left open"; }

  std::string path() const { return folder_.Path("file"); }
  void Write(const std::string& bytes) const { folder_.Write("file", bytes); }
  std::string Content() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  bool Exists() const { return access(path().c_str(), F_OK) == 0; }

  uint32_t Open(uint32_t flags) const {
    const ValueResult<uint32_t> opened = OpenDescriptor(path().c_str(), flags, kMayWrite);
    EXPECT_TRUE(opened.ok) << "error " << opened.error;
    return opened.value;
  }

  const size_t before_;
  const TemporaryFolder folder_;
};

// ---- Opening and closing ----

TEST_F(FileCalls, AFileNeedsAName) {
  ExpectFailed(OpenDescriptor(nullptr, kReadOnly, 0), EFAULT);
  EXPECT_FALSE(IsAccessible(nullptr, kAccessExists));
  ExpectFailed(MakeLink(nullptr, path().c_str()), EFAULT);
  ExpectFailed(MakeLink(path().c_str(), nullptr), EFAULT);
}

TEST_F(FileCalls, AFileThatIsOnlyReadIsNotEmptiedWithoutTheRightTo) {
  Write("full");
  const AnsweredCall refused("open", Refuse(EACCES, 1, 1));
  ExpectFailed(OpenDescriptor(path().c_str(), kReadOnly | kCreate | kEmpty, kMayWrite), EACCES);
  EXPECT_EQ(refused.answered(), 1u);
  EXPECT_EQ(Content(), "full");
}

TEST_F(FileCalls, AFileWithoutRoomForItsModeIsNotOpened) {
  constexpr int kDescriptor = 9000;  // the modes of these descriptors are not mapped yet
  Write("");
  {
    const AnsweredCall high("open", [&](const Words& arguments, Word* word) {
      const int low = open(path().c_str(), static_cast<int>(arguments[1]));
      *word = dup3(low, kDescriptor, O_CLOEXEC);
      close(low);
      return Answer::kGive;
    });
    const AnsweredCall refused("mmap", Refuse(ENOMEM));
    ExpectFailed(OpenDescriptor(path().c_str(), kReadWrite | kBinary, kMayWrite), ENOMEM);
  }
  EXPECT_EQ(fcntl(kDescriptor, F_GETFD), -1) << "the descriptor was left open";
}

TEST_F(FileCalls, ADescriptorHasAModeUpToALargestNumber) {
  constexpr int kLargest = 4096 * 4096 - 1;
  EXPECT_FALSE(RememberDescriptor(kLargest + 1, kModeOpened));
  EXPECT_EQ(ModeOf(kLargest + 1), 0);
  EXPECT_TRUE(RememberDescriptor(kLargest, kModeOpened));
  EXPECT_EQ(ForgetDescriptor(kLargest), kModeOpened);
}

// Both threads map the same modes.
TEST_F(FileCalls, TwoThreadsThatRememberDescriptorsAtOnceLoseNone) {
  constexpr int kFirst = 20'000;
  const AnsweredCall other("mmap",
                           Precede([] { EXPECT_TRUE(RememberDescriptor(kFirst, kModeText)); }));
  EXPECT_TRUE(RememberDescriptor(kFirst + 1, kModeAppend));
  EXPECT_EQ(ForgetDescriptor(kFirst), kModeText);
  EXPECT_EQ(ForgetDescriptor(kFirst + 1), kModeAppend);
}

struct Doubt {
  const char* call;
  Answering answering;
};

Answering OtherFile(uint64_t devices, uint64_t inodes) {
  return [=](const Words& arguments, Word* word) {
    auto* named = reinterpret_cast<struct stat*>(arguments[1]);
    *word = lstat(reinterpret_cast<const char*>(arguments[0]), named);
    named->st_dev += devices;
    named->st_ino += inodes;
    return Answer::kGive;
  };
}

// The name may be another file's by then.
TEST_F(FileCalls, ATemporaryFileStaysIfItsNameIsInDoubt) {
  const Doubt doubts[] = {{"readlink", Refuse(ENOENT)}, {"readlink", Give(0)},
                          {"fstat", Refuse(EIO)},       {"lstat", Refuse(ENOENT)},
                          {"lstat", OtherFile(1, 0)},   {"lstat", OtherFile(0, 1)}};
  for (const Doubt& doubt : doubts) {
    const uint32_t file = Open(kReadWrite | kCreate | kTemporary | kBinary);
    {
      const AnsweredCall answered(doubt.call, doubt.answering);
      ExpectOk(CloseDescriptor(file));
      EXPECT_EQ(answered.answered(), 1u);
    }
    EXPECT_TRUE(Exists()) << doubt.call;
  }
  ExpectOk(CloseDescriptor(Open(kReadWrite | kTemporary | kBinary)));
  EXPECT_FALSE(Exists());
}

TEST_F(FileCalls, AFileCanBeWrittenOnlyIfTheSystemKnowsIt) {
  Write("");
  EXPECT_TRUE(IsAccessible(path().c_str(), 2));
  const AnsweredCall refused("stat", Refuse(EIO));
  EXPECT_FALSE(IsAccessible(path().c_str(), 2));
}

// ---- Claims ----

Answering OnlyCommand(int command, Answering answering) {
  return [=](const Words& arguments, Word* word) {
    return arguments[1] == command ? answering(arguments, word) : Answer::kPass;
  };
}

// Others take every place at the same moment.
TEST_F(FileCalls, AClaimThatFindsNoPlaceCountsOnlyIfItDeniesOthersSomething) {
  const int file = open(path().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const AnsweredCall taken("fcntl", OnlyCommand(F_OFD_SETLK, [](const Words& arguments, Word*) {
                             const auto* lock = reinterpret_cast<struct flock*>(arguments[2]);
                             if (lock->l_type == F_UNLCK) return Answer::kPass;
                             errno = EAGAIN;
                             return Answer::kRefuse;
                           }));
  ExpectOk(ClaimFile(file, kRightWrite, 0));
  const uint32_t answered = taken.answered();
  EXPECT_GT(answered, 1u) << "it tries other places";
  ExpectFailed(ClaimFile(file, kRightWrite, kRightWrite), EAGAIN);
  close(file);
}

// Of two opens that conflict, each sees the other one's claims until it gives its own back.
TEST_F(FileCalls, AClaimThatOthersNeverDecideAboutFails) {
  const int file = open(path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const AnsweredCall held("fcntl", OnlyCommand(F_OFD_GETLK, [](const Words& arguments, Word* word) {
                            reinterpret_cast<struct flock*>(arguments[2])->l_type = F_WRLCK;
                            *word = 0;
                            return Answer::kGive;
                          }));
  const AnsweredCall pauses("nanosleep", Give(0));
  ExpectFailed(ClaimFile(file, kRightWrite, kRightWrite), kErrorConflict);
  EXPECT_GT(pauses.answered(), 1u);
  close(file);
}

// ---- Sizes ----

TEST_F(FileCalls, AFileGrowsOnAFileSystemThatCannotReserveRoom) {
  for (const int error : {EOPNOTSUPP, ENOSYS}) {
    const uint32_t file = Open(kReadWrite | kCreate | kEmpty | kBinary);
    const AnsweredCall refused("fallocate", Refuse(error));
    ExpectOk(ResizeDescriptor(file, 100));
    EXPECT_EQ(Content().size(), 100u);
    ExpectOk(CloseDescriptor(file));
  }
}

TEST_F(FileCalls, AFileThatCannotGrowKeepsItsSize) {
  const uint32_t file = Open(kReadWrite | kCreate | kBinary);
  const AnsweredCall refused("fallocate", Refuse(ENOSPC));
  ExpectFailed(ResizeDescriptor(file, 100), ENOSPC);
  EXPECT_EQ(Content(), "");
  ExpectOk(CloseDescriptor(file));
}

// Another writer appends while the disk is found full.
TEST_F(FileCalls, AFileThatCannotGrowKeepsWhatAnotherAppends) {
  const uint32_t file = Open(kReadWrite | kCreate | kBinary);
  const AnsweredCall full("fallocate", [&](const Words&, Word*) {
    std::ofstream(path(), std::ios::app) << "late";
    errno = ENOSPC;
    return Answer::kRefuse;
  });
  ExpectFailed(ResizeDescriptor(file, 100), ENOSPC);
  EXPECT_EQ(Content(), "late");
  ExpectOk(CloseDescriptor(file));
}

TEST_F(FileCalls, AFileThatGrowsKeepsWhatAnotherAppends) {
  const std::string appended(200, 'x');
  for (const uint32_t step : {0u, 1u}) {
    const uint32_t file = Open(kReadWrite | kCreate | kEmpty | kBinary);
    const AnsweredCall late(
        "fallocate", Precede([&] { std::ofstream(path(), std::ios::app) << appended; }, step));
    ExpectOk(ResizeDescriptor(file, 100));
    EXPECT_EQ(Content(), appended);
    ExpectOk(CloseDescriptor(file));
  }
}

// The space that was reserved before the disk was full, or before the size could not be raised.
TEST_F(FileCalls, AFileThatCannotGrowReservesNoSpace) {
  constexpr Word kReserved = 1 << 16;
  for (const bool reservesAll : {false, true}) {
    const uint32_t file = Open(kReadWrite | kCreate | kBinary);
    const AnsweredCall full("fallocate", [&](const Words& arguments, Word*) {
      const bool reserves = arguments[1] == FALLOC_FL_KEEP_SIZE;
      if (reserves && reservesAll) return Answer::kPass;
      if (reserves) syscall(SYS_fallocate, arguments[0], FALLOC_FL_KEEP_SIZE, 0, kReserved);
      errno = ENOSPC;
      return Answer::kRefuse;
    });
    ExpectFailed(ResizeDescriptor(file, 2 * kReserved), ENOSPC);
    EXPECT_EQ(full.answered(), 1u);
    struct stat status = {};
    EXPECT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 0);
    EXPECT_EQ(status.st_blocks, 0);
    ExpectOk(CloseDescriptor(file));
  }
}

TEST_F(FileCalls, OnlyRegularFilesHaveASize) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ExpectFailed(DescriptorLength(static_cast<uint32_t>(ends[0])), ESPIPE);
  ExpectFailed(ResizeDescriptor(static_cast<uint32_t>(ends[1]), 8), EINVAL);
  ExpectFailed(ResizeDescriptor(static_cast<uint32_t>(ends[1]), -1), EINVAL);
  close(ends[0]);
  close(ends[1]);
}

// ---- Appending ----

TEST_F(FileCalls, AKernelThatCannotAppendInOneStepDoesItInTwo) {
  for (const int error : {EOPNOTSUPP, ENOSYS}) {
    Write("old");
    const uint32_t file = Open(kReadWrite | kAppend | kBinary);
    const AnsweredCall refused("pwritev2", Refuse(error));
    ExpectCount(WriteDescriptor(file, "new", 3), 3);
    EXPECT_EQ(Content(), "oldnew");
    const AnsweredCall lost("lseek", Refuse(ESPIPE));
    ExpectFailed(WriteDescriptor(file, "more", 4), ESPIPE);
    ExpectOk(CloseDescriptor(file));
  }
  EXPECT_EQ(Content(), "oldnew");
}

TEST_F(FileCalls, AnAppendReportsWhyItFails) {
  const uint32_t file = Open(kReadWrite | kCreate | kAppend | kBinary);
  const AnsweredCall refused("pwritev2", Refuse(ENOSPC));
  ExpectFailed(WriteDescriptor(file, "new", 3), ENOSPC);
  ExpectOk(CloseDescriptor(file));
}

TEST_F(FileCalls, AnAppendOfTextGoesToTheEnd) {
  Write("old");
  const uint32_t file = Open(kReadWrite | kAppend | kText);
  ExpectCount(WriteDescriptor(file, "a\n", 2), 2);
  ExpectOk(CloseDescriptor(file));
  EXPECT_EQ(Content(), "olda\r\n");
}

TEST_F(FileCalls, AWriteToAPipeOnAnyKernelRaisesNoSignal) {
  for (const int error : {EOPNOTSUPP, ENOSYS}) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    kernelHasNoSignal = true;
    const AnsweredCall refused("pwritev2", Refuse(error));
    EXPECT_EQ(WriteRawWithoutSignal(ends[1], "ab", 2), 2);
    EXPECT_FALSE(kernelHasNoSignal);
    close(ends[0]);
    EXPECT_EQ(WriteRawWithoutSignal(ends[1], "ab", 2), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
  }
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  kernelHasNoSignal = true;
  const AnsweredCall refused("pwritev2", Refuse(EIO));
  EXPECT_EQ(WriteRawWithoutSignal(ends[1], "ab", 2), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_TRUE(kernelHasNoSignal);
  close(ends[0]);
  close(ends[1]);
}

// ---- Text ----

TEST_F(FileCalls, ATextFileWhoseLastByteCannotBeReadKeepsIt) {
  Write("end\x1A");
  const AnsweredCall refused("read", Refuse(EIO));
  const uint32_t file = Open(kReadWrite | kText);
  EXPECT_EQ(refused.answered(), 1u);
  ExpectOk(CloseDescriptor(file));
  EXPECT_EQ(Content(), "end\x1A");
}

TEST_F(FileCalls, AWriteOfTextTellsHowMuchOfItTheFileHolds) {
  const uint32_t file = Open(kReadWrite | kCreate | kText);
  ExpectCount(WriteDescriptor(file, "a", 0), 0);
  {
    const AnsweredCall partly("write", Give(2));  // "a" and half of the line's end
    ExpectCount(WriteDescriptor(file, "a\nb", 3), 1);
  }
  {
    const AnsweredCall nothing("write", Give(0));
    ExpectFailed(WriteDescriptor(file, "a\nb", 3), ENOSPC);
  }
  {
    const AnsweredCall refused("write", Refuse(EIO));
    ExpectFailed(WriteDescriptor(file, "a\nb", 3), EIO);
  }
  constexpr uint32_t kPiece = 4096;  // of the text, which a write of the file holds
  const std::string text(kPiece + 10, 'x');
  const AnsweredCall refused("write", Refuse(ENOSPC, 1));
  ExpectCount(WriteDescriptor(file, text.data(), kPiece + 10), kPiece);
  ExpectOk(CloseDescriptor(file));
}

// A terminal or a pipe cannot be read again: the byte behind a carriage return is kept.
TEST_F(FileCalls, AByteThatWasReadTooFarIsReadNext) {
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  const uint32_t file = Open(kReadWrite | kText);
  char bytes[4] = {};
  ASSERT_EQ(write(static_cast<int>(file), "\rab\rc", 5), 5);
  ExpectCount(ReadDescriptor(file, bytes, 0), 0);
  ExpectCount(ReadDescriptor(file, bytes, 1), 1);
  EXPECT_EQ(bytes[0], '\r');
  ExpectCount(ReadDescriptor(file, bytes, 1), 1);
  EXPECT_EQ(bytes[0], 'a');
  ExpectCount(ReadDescriptor(file, bytes, 2), 2);
  EXPECT_EQ(std::string(bytes, 2), "b\r");
  const AnsweredCall refused("read", Refuse(EIO));
  ExpectCount(ReadDescriptor(file, bytes, 3), 1);
  EXPECT_EQ(bytes[0], 'c');
  ExpectOk(CloseDescriptor(file));
}

// ---- Names and paths ----

TEST_F(FileCalls, TemporaryNamesLieInTheFirstFolderThatExists) {
  const char* known = std::getenv("TMP");
  const std::string before = known == nullptr ? "" : known;
  setenv("TMPDIR", folder_.Path().c_str(), 1);
  for (const std::string& unusable : {std::string(), folder_.Path("missing")}) {
    setenv("TMP", unusable.c_str(), 1);
    const ValueResult<char*> made = MakeTemporaryName("name");
    ASSERT_TRUE(made.ok);
    EXPECT_EQ(std::string(made.value).rfind(folder_.Path(), 0), 0u) << made.value;
    RawFree(made.value);
  }
  unsetenv("TMPDIR");
  setenv("TMP", before.c_str(), 1);
  if (known == nullptr) unsetenv("TMP");
}

TEST_F(FileCalls, AnAbsolutePathHasALongestLength) {
  char buffer[16];
  EXPECT_EQ(AbsolutePath(nullptr, sizeof buffer, buffer), 0u);
  EXPECT_EQ(AbsolutePath("/a/../b/", sizeof buffer, buffer), 3u);
  EXPECT_STREQ(buffer, "/b/");
  // A separator in front and one behind, and the terminator.
  const std::string longest = "/" + std::string(8 * PATH_MAX - 3, 'x');
  EXPECT_EQ(AbsolutePath(longest.c_str(), sizeof buffer, buffer), longest.size() + 1);
  EXPECT_EQ(AbsolutePath((longest + "/").c_str(), sizeof buffer, buffer), longest.size() + 2);
  for (const std::string& tooLong : {longest + "x", longest + "x/"}) {
    errno = 0;
    EXPECT_EQ(AbsolutePath(tooLong.c_str(), sizeof buffer, buffer), 0u);
    EXPECT_EQ(errno, ENAMETOOLONG);
  }
  const AnsweredCall gone("getcwd", Refuse(ENOENT));
  EXPECT_EQ(AbsolutePath("a", sizeof buffer, buffer), 0u);
}

// ---- Searching ----

class FileSearch : public FileCalls {
 protected:
  std::string Pattern(const std::string& names) const { return folder_.Path(names); }

  KivSdFindData found_ = {};
};

// Fills in what the kernel says of the entries.
Answering Described(const std::function<void(struct statx*)>& change) {
  return [=](const Words& arguments, Word* word) {
    if (arguments[0] != SYS_statx) return Answer::kPass;
    *word =
        syscall(SYS_statx, arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
    change(reinterpret_cast<struct statx*>(arguments[5]));
    return Answer::kGive;
  };
}

TEST_F(FileSearch, AnEntryThatIsGoneIsLeftOut) {
  Write("");
  const AnsweredCall gone("syscall", [](const Words& arguments, Word*) {
    if (arguments[0] != SYS_statx) return Answer::kPass;
    errno = ENOENT;
    return Answer::kRefuse;
  });
  ExpectFailed(StartFileSearch(Pattern("f*").c_str(), &found_), ENOENT);
}

TEST_F(FileSearch, AFileSystemWithoutBirthTimesShowsTheTimeOfTheLastWrite) {
  Write("");
  const AnsweredCall told("syscall", Described([](struct statx* entry) {
                            entry->stx_mask &= ~STATX_BTIME;
                            entry->stx_btime.tv_sec = 0;
                          }));
  const ValueResult<void*> search = StartFileSearch(path().c_str(), &found_);
  ASSERT_TRUE(search.ok);
  EXPECT_EQ(found_.created.low, found_.written.low);
  EXPECT_EQ(found_.created.high, found_.written.high);
  ExpectOk(EndFileSearch(search.value));
}

TEST_F(FileSearch, ATimeBefore1601IsTheStartOfTheScale) {
  Write("");
  const AnsweredCall told("syscall", Described([](struct statx* entry) {
                            entry->stx_mtime.tv_sec = -11'644'473'601;
                            entry->stx_atime.tv_sec = -11'644'473'599;
                            entry->stx_atime.tv_nsec = 0;
                          }));
  const ValueResult<void*> search = StartFileSearch(path().c_str(), &found_);
  ASSERT_TRUE(search.ok);
  EXPECT_EQ(found_.written.low, 0u);
  EXPECT_EQ(found_.written.high, 0u);
  EXPECT_EQ(found_.accessed.low, 10'000'000u) << "one second in units of 100 nanoseconds";
  ExpectOk(EndFileSearch(search.value));
}

TEST_F(FileSearch, APatternHasALongestLength) {
  const std::string folder = "/" + std::string(PATH_MAX - 2, 'x');
  ExpectFailed(StartFileSearch((folder + "/*").c_str(), &found_), ENAMETOOLONG);
  ExpectFailed(StartFileSearch(Pattern(std::string(10'000, 'x')).c_str(), &found_), ENAMETOOLONG);
}

TEST_F(FileSearch, ASearchThatIsEndedMeanwhileIsABadHandle) {
  Write("");
  const ValueResult<void*> search = StartFileSearch(Pattern("*").c_str(), &found_);
  ASSERT_TRUE(search.ok);
  const AnsweredCall ended("EnterObject", Precede([&] { ExpectOk(EndFileSearch(search.value)); }));
  ExpectFailed(ContinueFileSearch(search.value, &found_), EBADF);
}

TEST_F(FileSearch, ASearchThatIsEndedDuringALookEndsAfterIt) {
  Write("");
  const ValueResult<void*> search = StartFileSearch(Pattern("*").c_str(), &found_);
  ASSERT_TRUE(search.ok);
  const AnsweredCall ended("LeaveObject", Precede([&] { ExpectOk(EndFileSearch(search.value)); }));
  ExpectOk(ContinueFileSearch(search.value, &found_));
  ExpectFailed(ContinueFileSearch(search.value, &found_), EBADF);
}

TEST_F(FileSearch, WithoutAHandleNoSearchStarts) {
  Write("");
  const AnsweredCall full("TakeSlot", Refuse(ENOMEM));
  ExpectFailed(StartFileSearch(path().c_str(), &found_), ENOMEM);
}

// ---- Direct files ----

constexpr uint32_t kAccessAll = 0x10000000;
constexpr uint32_t kOverlapped = 0x40000000;
constexpr uint32_t kShareRead = 1;
constexpr uint32_t kShareReadWrite = 3;
constexpr uint32_t kMakeOrEmpty = 2;
constexpr uint32_t kBlockBytes = 8192;

class DirectFiles : public FileCalls {
 protected:
  ValueResult<void*> OpenDirect(uint32_t flags = 0) const {
    return OpenDirectFile(path().c_str(), kAccessAll, kShareReadWrite, kOpenOrMake, flags);
  }

  alignas(4096) unsigned char block_[kBlockBytes] = {};
};

// Another process opens the file when it has just been made, and writes before the claim.
TEST_F(DirectFiles, AFileThatOthersMayNotWriteIsEmptyWhenItIsMade) {
  for (const uint32_t shareMode : {kShareRead, kShareReadWrite}) {
    const AnsweredCall early("fcntl", Precede([&] { std::ofstream(path()) << "early"; }));
    const ValueResult<void*> file =
        OpenDirectFile(path().c_str(), kAccessAll, shareMode, kMakeOrEmpty, 0);
    ASSERT_TRUE(file.ok) << "error " << file.error;
    EXPECT_EQ(Content(), shareMode == kShareRead ? "" : "early");
    ExpectOk(CloseDirectFile(file.value));
    EXPECT_EQ(unlink(path().c_str()), 0);
  }
}

struct Alignment {
  uint32_t mask;
  uint32_t bytes;
  bool isEnough;
};

TEST_F(DirectFiles, AFileSystemMayAskForBlocksOfAtMost8KiB) {
  const Alignment rows[] = {{STATX_DIOALIGN, 512, true},
                            {STATX_DIOALIGN, kBlockBytes, true},
                            {STATX_DIOALIGN, 2 * kBlockBytes, false},
                            {STATX_DIOALIGN, 0, false},
                            {0, 0, true}};
  for (const Alignment& row : rows) {
    const AnsweredCall told("syscall", Described([&](struct statx* entry) {
                              entry->stx_mask = row.mask;
                              entry->stx_dio_offset_align = row.bytes;
                            }));
    const ValueResult<void*> opened = OpenDirect();
    EXPECT_EQ(opened.ok, row.isEnough) << row.bytes;
    if (opened.ok) ExpectOk(CloseDirectFile(opened.value));
    if (!opened.ok) {
      EXPECT_EQ(opened.error, uint32_t{EINVAL});
    }
  }
}

TEST_F(DirectFiles, AKernelThatCannotTellTheAlignmentIsTrusted) {
  const AnsweredCall refused("syscall", Refuse(ENOSYS));
  const ValueResult<void*> opened = OpenDirect();
  EXPECT_TRUE(opened.ok);
  ExpectOk(CloseDirectFile(opened.value));
}

TEST_F(DirectFiles, AFileSystemInMemoryHasNoDirectTransfers) {
  for (const long type : {long{TMPFS_MAGIC}, long{RAMFS_MAGIC}}) {
    const AnsweredCall told("fstatfs", [=](const Words& arguments, Word* word) {
      reinterpret_cast<struct statfs*>(arguments[1])->f_type = type;
      *word = 0;
      return Answer::kGive;
    });
    ExpectFailed(OpenDirect(), EINVAL);
  }
}

TEST_F(DirectFiles, WithoutAHandleNoFileIsOpened) {
  const AnsweredCall full("TakeSlot", Refuse(ENOMEM));
  ExpectFailed(OpenDirect(), ENOMEM);
}

TEST_F(DirectFiles, OnlyAnOpenFileEndsAtItsPosition) {
  ExpectFailed(EndFileAtPosition(nullptr), EBADF);
}

TEST_F(DirectFiles, AFileEndsWhereItDidIfItsPositionOrSizeIsUnknown) {
  const ValueResult<void*> file = OpenDirect();
  ASSERT_TRUE(file.ok);
  ExpectCount(WriteSystemFile(file.value, block_, kBlockBytes, nullptr), kBlockBytes);
  ExpectCount(MoveFilePointer(file.value, 0, Origin::kBeginning), 0);
  for (const char* call : {"lseek", "fstat"}) {
    const AnsweredCall refused(call, Refuse(EIO));
    ExpectFailed(EndFileAtPosition(file.value), EIO);
  }
  EXPECT_EQ(DirectFileSize(file.value).value, kBlockBytes);
  ExpectOk(CloseDirectFile(file.value));
}

// ---- Transfers ----

// Leaves no zero in the memory that the next calls use for their variables.
[[gnu::noinline]] void FillStack() {
  volatile unsigned char bytes[4096];
  for (volatile unsigned char& byte : bytes) byte = 0xFF;
}

TEST_F(FileCalls, AWriteThatBlocksThePipesSignalBlocksNoOther) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  kernelHasNoSignal = false;
  sigset_t blocked = {};
  {
    const AnsweredCall writes("write",
                              Precede([&] { pthread_sigmask(SIG_BLOCK, nullptr, &blocked); }));
    FillStack();
    EXPECT_EQ(WriteRawWithoutSignal(ends[1], "x", 1), 1);
  }
  kernelHasNoSignal = true;
  EXPECT_EQ(sigismember(&blocked, SIGPIPE), 1);
  EXPECT_EQ(sigismember(&blocked, SIGUSR1), 0);
  for (const int end : ends) close(end);
}

TEST_F(DirectFiles, ATransferWithoutARecordIsAtTheFilesPosition) {
  const ValueResult<void*> file = OpenDirect();
  ASSERT_TRUE(file.ok);
  ExpectCount(WriteSystemFile(file.value, block_, kBlockBytes, nullptr), kBlockBytes);
  ExpectCount(MoveFilePointer(file.value, 0, Origin::kPosition), kBlockBytes);
  ExpectCount(ReadSystemFile(file.value, block_, kBlockBytes, nullptr), 0);
  const AnsweredCall refused("fstat", Refuse(EIO));
  ExpectFailed(MoveFilePointer(file.value, 0, Origin::kEnd), EIO);
  ExpectOk(CloseDirectFile(file.value));
}

TEST_F(DirectFiles, ATransferNeedsAnEventThatIsOpen) {
  const ValueResult<void*> file = OpenDirect();
  ASSERT_TRUE(file.ok);
  KivSdNoWaitCb record = {};
  record.event = reinterpret_cast<void*>(intptr_t{1});
  ExpectFailed(WriteSystemFile(file.value, block_, kBlockBytes, &record), EBADF);
  ExpectOk(CloseDirectFile(file.value));
}

TEST_F(DirectFiles, ATransferOfNothingHasEndedWhenItIsStarted) {
  const ValueResult<void*> file = OpenDirect(kOverlapped);
  ASSERT_TRUE(file.ok);
  KivSdNoWaitCb record = {};
  record.event = MakeManualEvent().value;
  ExpectCount(ReadSystemFile(file.value, block_, 0, &record), 0);
  EXPECT_EQ(WaitOne(record.event, 0).result, kWaitSignalled);
  ExpectOk(CloseObject(record.event));
  ExpectOk(CloseDirectFile(file.value));
}

TEST_F(FileCalls, ADescriptorsFileTransfersAtItsPositionOrARecords) {
  Write("abcdef");
  const uint32_t descriptor = Open(kReadWrite | kBinary);
  void* file = SystemFileOf(static_cast<int>(descriptor));
  char bytes[4] = {};
  ExpectCount(ReadSystemFile(file, bytes, 2, nullptr), 2);
  EXPECT_EQ(std::string(bytes), "ab");
  KivSdNoWaitCb record = {};
  record.offsetLow = 4;
  ExpectCount(ReadSystemFile(file, bytes, 2, &record), 2);
  EXPECT_EQ(std::string(bytes), "ef");
  ExpectCount(MoveFilePointer(file, -1, Origin::kEnd), 5);
  ExpectCount(WriteSystemFile(file, "Z", 1, nullptr), 1);
  ExpectOk(CloseDescriptor(descriptor));
  EXPECT_EQ(Content(), "abcdeZ");
}

}  // namespace
