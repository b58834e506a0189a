// Pages, modules, the console's text and what the machine tells on Linux: rare answers of the system's
// calls.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "os/calendar.h"
#include "os/console.h"
#include "os/links.h"
#include "os/lnx/module_failure.h"
#include "os/machine.h"
#include "os/modules.h"
#include "os/pages.h"
#include "os/processor.h"
#include "os/volumes.h"
#include "support/lnx/answered_calls.h"
#include "support/lnx/os_results.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::os;
using namespace kiv::test;

// Runs in a new process, which has not used the library yet. The result is its exit code.
int RunInChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// ---- What a process does once ----

constexpr size_t kTableBytes = 256 * 16;  // the first table of mappings
constexpr uint32_t kFailure = ELIBBAD;

int CommitWithoutTable() {
  const AnsweredCall refused("mmap", [](const Words& arguments, Word*) {
    if (arguments[1] != kTableBytes) return Answer::kPass;
    errno = ENOMEM;
    return Answer::kRefuse;
  });
  if (ReleasePages(&errno).error != EINVAL) return 1;  // there is no table yet
  const ValueResult<void*> pages = CommitPages(1 << 20);
  return !pages.ok && pages.error == ENOMEM ? 0 : 2;
}

int KeepWithoutKey() {
  const AnsweredCall refused("pthread_key_create", Refuse(EAGAIN));
  KeepFailure(kFailure, "text");
  return KeptText(kFailure) == nullptr ? 0 : 1;
}

int AskForTheProgramInVain() {
  const AnsweredCall refused("dlopen", Refuse(ENOMEM));
  return MainModule() == nullptr ? 0 : 1;
}

struct First {
  int commitWithoutTable = -1;
  int keepWithoutKey = -1;
  int askForTheProgram = -1;
};
First first;

class FirstUses : public testing::Environment {
 public:
  void SetUp() override {
    first.commitWithoutTable = RunInChild(CommitWithoutTable);
    first.keepWithoutKey = RunInChild(KeepWithoutKey);
    first.askForTheProgram = RunInChild(AskForTheProgramInVain);
  }
};
const testing::Environment* const kFirstUses = testing::AddGlobalTestEnvironment(new FirstUses);

// ---- Pages ----

TEST(Pages, AreNotCommittedIfTheyCannotBeRemembered) { EXPECT_EQ(first.commitWithoutTable, 0); }

TEST(Pages, AreReleasedByTheirAddressOnly) {
  const ValueResult<void*> pages = CommitPages(1);
  ASSERT_TRUE(pages.ok);
  ExpectFailed(ReleasePages(nullptr), EINVAL);
  ExpectFailed(ReleasePages(static_cast<char*>(pages.value) + 8192), EINVAL);
  ExpectOk(ReleasePages(pages.value));
  ExpectFailed(ReleasePages(pages.value), EINVAL);
}

// The kernel aligns its addresses to smaller pages.
TEST(Pages, ThatCannotBeAlignedAreNotCommitted) {
  constexpr Word kUnaligned = 0x10001000;
  const AnsweredCall gives("mmap", [](const Words& arguments, Word* word) {
    errno = ENOMEM;
    if (arguments[1] != 8192) return Answer::kRefuse;
    *word = kUnaligned;
    return Answer::kGive;
  });
  const AnsweredCall takes("munmap", Give(0));
  ExpectFailed(CommitPages(8192), ENOMEM);
  EXPECT_EQ(gives.answered(), 2u);
  EXPECT_EQ(takes.answered(), 1u);
}

// The kernel gives any addresses; here the test does, so that many share a place in the table.
TEST(Pages, OfAllAddressesAreFoundUntilTheyAreReleased) {
  constexpr uintptr_t kUnit = 8192;
  constexpr size_t kCount = 120;
  uintptr_t last = 0;
  const AnsweredCall gives("mmap", [&](const Words& arguments, Word* word) {
    if (arguments[1] != kUnit) return Answer::kPass;
    last = (last * 6364136223846793005 + 1442695040888963407) >> 1;
    *word = static_cast<Word>(last % (uintptr_t{1} << 46) / kUnit * kUnit);
    return Answer::kGive;
  });
  const AnsweredCall takes("munmap", [](const Words& arguments, Word* word) {
    if (arguments[1] != kUnit) return Answer::kPass;
    *word = 0;
    return Answer::kGive;
  });
  std::vector<void*> made;
  for (int round = 0; round < 20; ++round) {
    while (made.size() < kCount) made.push_back(CommitPages(kUnit).value);
    EXPECT_EQ(std::set<void*>(made.begin(), made.end()).size(), kCount);
    const size_t kept = round % 2 == 0 ? kCount / 3 : 0;
    while (made.size() > kept) {
      const size_t at = made.size() * 7 / 11;
      ExpectOk(ReleasePages(made[at]));
      ExpectFailed(ReleasePages(made[at]), EINVAL);
      made.erase(made.begin() + static_cast<std::ptrdiff_t>(at));
    }
  }
}

// ---- Modules ----

constexpr char kOne[] = "libm.so.6";
constexpr char kOther[] = "libresolv.so.2";

class LoadedModule {
 public:
  explicit LoadedModule(const char* name)
      : handle_(LoadModule(name, ModuleSearch::kStandard).value) {
    EXPECT_NE(handle_, nullptr);
  }
  ~LoadedModule() { ExpectOk(UnloadModule(handle_)); }
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  void* handle() const { return handle_; }

 private:
  void* const handle_;
};

TEST(Modules, TheProgramMayHaveNoHandle) { EXPECT_EQ(first.askForTheProgram, 0); }

TEST(Modules, HaveTheirOwnEntriesOnly) {
  const LoadedModule one(kOne);
  const LoadedModule other(kOther);
  EXPECT_TRUE(FindEntry(one.handle(), "cos").ok);
  ExpectFailed(FindEntry(other.handle(), "cos"), ENOENT);
  ExpectFailed(FindEntry(nullptr, "cos"), EBADF);
  const AnsweredCall unknown("dladdr1", Give(0));
  ExpectFailed(FindEntry(one.handle(), "cos"), ENOENT);
}

TEST(Modules, WhosePathCannotBeFoundOrKeptHaveNone) {
  char path[64];
  {
    const AnsweredCall refused("dlinfo", Refuse(ENOENT));
    const LoadedModule module(kOther);
    ExpectFailed(ModulePath(module.handle(), path, sizeof path), ENOMEM);
  }
  const AnsweredCall real("realpath", Refuse(ENOMEM));
  const AnsweredCall copied("strdup", Refuse(ENOMEM));
  const LoadedModule module(kOther);
  ExpectFailed(ModulePath(module.handle(), path, sizeof path), ENOMEM);
}

TEST(Modules, TheProgramsPathNeedsTheSystem) {
  char path[64];
  const AnsweredCall refused("readlink", Refuse(EACCES));
  ExpectFailed(ModulePath(nullptr, path, sizeof path), EACCES);
}

TEST(Modules, ThatTheLoaderKeepsAreAFailureAndGone) {
  void* handle = LoadModule(kOther, ModuleSearch::kStandard).value;
  {
    const AnsweredCall refused("dlclose", Refuse(0));
    ExpectFailed(UnloadModule(handle), ELIBBAD);
  }
  ExpectFailed(UnloadModule(handle), EBADF);
  EXPECT_EQ(dlclose(handle), 0);
}

TEST(Messages, OfTheLoaderThatDoNotFitGiveWayToTheSystems) {
  char text[64];
  ASSERT_FALSE(LoadModule("/nonexistent/module.so", ModuleSearch::kStandard).ok);
  ExpectFailed(SystemMessage(ELIBACC, nullptr, text, 20), ERANGE);
  EXPECT_TRUE(SystemMessage(ELIBACC, nullptr, text, sizeof text).ok);
}

TEST(Messages, OfNumbersThatAreNoneFail) {
  char text[64];
  ExpectFailed(SystemMessage(UINT32_MAX, nullptr, text, sizeof text), ENOENT);
}

TEST(Messages, AreNotKeptWithoutMemory) {
  EXPECT_EQ(first.keepWithoutKey, 0);
  for (const char* call : {"malloc", "pthread_setspecific"}) {
    std::thread([=] {
      {
        const AnsweredCall refused(call, Refuse(ENOMEM));
        KeepFailure(kFailure, "text");
      }
      EXPECT_EQ(KeptText(kFailure), nullptr) << call;
      KeepFailure(kFailure, "text");
      EXPECT_STREQ(KeptText(kFailure), "text");
      EXPECT_EQ(KeptText(kFailure + 1), nullptr);
      ForgetFailure();
      EXPECT_EQ(KeptText(kFailure), nullptr);
    }).join();
  }
}

// ---- The console's text ----

// Prints to a pipe that nobody reads.
Result PrintInVain() {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[0]);
  close(ends[1]);
  const std::string text(1 << 16, 'x');  // more than the runtime's buffer
  const Result printed = PrintText(text.c_str());
  std::clearerr(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  return printed;
}

bool HasPipeSignal() {
  sigset_t pending;
  EXPECT_EQ(sigpending(&pending), 0);
  return sigismember(&pending, SIGPIPE) == 1;
}

TEST(ConsoleText, TakesItsOwnSignalBackAlsoIfItIsInterrupted) {
  const AnsweredCall interrupted("sigtimedwait", Refuse(EINTR, 0, 1));
  ExpectFailed(PrintInVain(), EPIPE);
  EXPECT_EQ(interrupted.answered(), 1u);
  EXPECT_FALSE(HasPipeSignal());
}

TEST(ConsoleText, TakesItsOwnSignalBackAlsoIfOthersAreUnknown) {
  const AnsweredCall unknown("sigpending", Refuse(EFAULT));
  ExpectFailed(PrintInVain(), EPIPE);
}

TEST(ConsoleText, LeavesASignalThatCameBefore) {
  sigset_t signal;
  sigset_t before;
  sigemptyset(&signal);
  sigaddset(&signal, SIGPIPE);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signal, &before), 0);
  ASSERT_EQ(pthread_kill(pthread_self(), SIGPIPE), 0);
  ExpectFailed(PrintInVain(), EPIPE);
  EXPECT_TRUE(HasPipeSignal());
  const timespec now = {};
  EXPECT_EQ(sigtimedwait(&signal, nullptr, &now), SIGPIPE);
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

// ---- The machine ----

TEST(Machine, AVersionMayLackParts) {
  const auto versionOf = [](const char* release) {
    const AnsweredCall told("uname", [=](const Words& arguments, Word* word) {
      auto* system = reinterpret_cast<utsname*>(arguments[0]);
      std::strcpy(system->release, release);
      *word = 0;
      return Answer::kGive;
    });
    return SystemVersion();
  };
  EXPECT_EQ(versionOf("6"), 6u);
  EXPECT_EQ(versionOf("6.12.3"), 6u | 12u << 8);
  EXPECT_EQ(versionOf("600.x"), 255u);
  const AnsweredCall refused("uname", Refuse(EFAULT));
  EXPECT_EQ(SystemVersion(), 0u);
  EXPECT_EQ(MajorVersion(), 0u);
}

TEST(Machine, AUserWhoseRecordIsTooLongHasANumber) {
  char name[24];
  const AnsweredCall tooLong("getpwuid_r", Give(ERANGE));
  ExpectOk(LoginName(name, sizeof name));
  EXPECT_EQ(name, std::to_string(getuid()));
  EXPECT_GT(tooLong.answered(), 1u) << "a larger buffer is tried";
}

TEST(Machine, ProcessorsThatNobodyCountsAreNone) {
  const AnsweredCall refused("sched_getaffinity", Refuse(EPERM));
  {
    const AnsweredCall online("sysconf", Give(-1));
    EXPECT_EQ(ProcessorCount(), 0u);
  }
  const AnsweredCall online("sysconf", Give(1));
  EXPECT_EQ(ProcessorCount(), 1u);
}

TEST(Machine, AClockThatCannotBeReadIsAFailure) {
  const AnsweredCall refused("clock", Refuse(EOVERFLOW));
  ExpectFailed(ProcessClock(), EOVERFLOW);
}

// ---- Drives ----

TEST(Drives, AsManyAsThereAreLettersFillTheMask) {
  const TemporaryFolder folder;
  std::string lines = "1 1 254:1 / / rw - ext4 /dev/vda1 rw\n";
  for (int i = 2; i < 40; ++i) {
    const std::string number = std::to_string(i);
    lines += "1 1 254:" + number + " / /" + number + " rw - ext4 /dev/vda" + number + " rw\n";
  }
  folder.Write("mountinfo", lines);
  const AnsweredCall told("open", [&](const Words& arguments, Word* word) {
    const auto* path = reinterpret_cast<const char*>(arguments[0]);
    if (std::strcmp(path, "/proc/self/mountinfo") != 0) return Answer::kPass;
    *word = open(folder.Path("mountinfo").c_str(), O_RDONLY | O_CLOEXEC);
    return Answer::kGive;
  });
  const AnsweredCall folders("stat", [](const Words& arguments, Word* word) {
    reinterpret_cast<struct stat*>(arguments[1])->st_mode = S_IFDIR;
    *word = 0;
    return Answer::kGive;
  });
  EXPECT_EQ(DriveMask().value, UINT32_MAX);
}

TEST(Drives, WithMoreClustersThanANumberHoldsCountLargerOnes) {
  const AnsweredCall large("statvfs", [](const Words& arguments, Word* word) {
    auto* space = reinterpret_cast<struct statvfs*>(arguments[1]);
    *space = {};
    space->f_frsize = 4096;
    space->f_blocks = uint64_t{6} << 32;
    space->f_bavail = uint64_t{2} << 32;
    *word = 0;
    return Answer::kGive;
  });
  const ValueResult<DiskSpace> space = FreeDiskSpace("A:\\");
  ASSERT_TRUE(space.ok);
  EXPECT_EQ(space.value.sectorsPerCluster, 8u);
  EXPECT_EQ(space.value.bytesPerSector, 4096u);
  EXPECT_EQ(space.value.totalClusters, uint32_t{6} << 29);
  EXPECT_EQ(space.value.freeClusters, uint32_t{2} << 29);
}

}  // namespace
