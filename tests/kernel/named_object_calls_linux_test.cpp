// Named objects and mutexes on Linux: rare answers of the system's calls, and files in the folder of
// the names that this library did not make as they are.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "os/kernel_objects.h"
#include "os/lnx/mutex.h"
#include "os/lnx/name_folder.h"
#include "os/lnx/names.h"
#include "os/shared_memory.h"
#include "support/lnx/answered_calls.h"
#include "support/lnx/own_names.h"
#include "support/open_handles.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::os;
using namespace kiv::test;

constexpr uid_t kStranger = 54321;
constexpr NamedShape kSemaphore = {NamedKind::kSemaphore, 1, 2, 0, 0};
constexpr NamedShape kMutex = {NamedKind::kMutex, 0, 0, 0, 0};
constexpr NamedShape kBlock = {NamedKind::kBlock, 0, 0, 100, kPagesReadWrite};

const std::string kName = "named-calls-" + std::to_string(getpid());

std::string NameFolder() {
  char path[256];
  EXPECT_TRUE(NameFolderPath(path, sizeof path).ok);
  return std::string(path) + "/";
}

std::string ObjectFile() { return NameFolder() + "o-" + kName; }

ValueResult<NamedObject*> Make(const NamedShape& shape) { return MakeNamed(kName.c_str(), shape); }
ValueResult<NamedObject*> Open(NamedKind kind) { return OpenNamed(kName.c_str(), kind); }

template <typename Value>
void ExpectFailed(const ValueResult<Value>& result, uint32_t error) {
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.error, error);
}

void ExpectWait(const Wait& wait, uint32_t result, uint32_t error) {
  EXPECT_EQ(wait.result, result);
  EXPECT_EQ(wait.error, error);
}

// Runs in a new process. The result is its exit code.
int RunInChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// ---- What the first object of a process does ----

int MakeAndRelease() {
  const ValueResult<NamedObject*> made = Make(kSemaphore);
  if (!made.ok) return 1;
  ReleaseNamed(made.value);
  return 0;
}

int DescriptorsLeftOpen() {
  const size_t before = OpenHandles();
  MakeAndRelease();
  return static_cast<int>(OpenHandles() - before);
}

struct FirstObject {
  int withoutFolder = -1;
  int withoutStream = -1;
  int opened = -1;  // descriptors that stay open
  int openedWithoutStream = -1;
  bool keptUnused = false;
  bool keptGone = false;
};
FirstObject first;

// The folder is opened, then the file of the holders, and the folder once more.
constexpr uint32_t kOpensBeforeSweep = 1;

class FirstObjects : public testing::Environment {
 public:
  void SetUp() override {
    names_.emplace();
    EXPECT_EQ(RunInChild(MakeAndRelease), 0) << "makes the folder";
    first.opened = RunInChild(DescriptorsLeftOpen);
    const std::string unused = NameFolder() + "o-named-calls-unused";
    std::ofstream(unused).close();
    first.withoutFolder = RunInChild([] {
      const AnsweredCall refused("openat", Refuse(EMFILE, kOpensBeforeSweep, 1));
      return refused.answered() == 0 ? MakeAndRelease() : 2;
    });
    first.withoutStream = RunInChild([] {
      const AnsweredCall refused("fdopendir", Refuse(ENOMEM));
      return MakeAndRelease();
    });
    first.openedWithoutStream = RunInChild([] {
      const AnsweredCall refused("fdopendir", Refuse(ENOMEM));
      return DescriptorsLeftOpen();
    });
    RunInChild([] {
      const AnsweredCall gone("fstatat", Refuse(ENOENT));
      return MakeAndRelease();
    });
    first.keptUnused = std::filesystem::exists(unused);
    EXPECT_EQ(MakeAndRelease(), 0);
    first.keptGone = std::filesystem::exists(unused);
  }
  void TearDown() override { names_.reset(); }

 private:
  std::optional<OwnNames> names_;
};
const testing::Environment* const kFirstObjects =
    testing::AddGlobalTestEnvironment(new FirstObjects);

class NamedCalls : public testing::Test {
 protected:
  NamedCalls() : before_(OpenHandles()) {}
  ~NamedCalls() override {
    EXPECT_EQ(OpenHandles(), before_) << "descriptors were left open";
    EXPECT_FALSE(std::filesystem::exists(ObjectFile())) << "the object's file was left behind";
  }

  const size_t before_;
};

TEST_F(NamedCalls, TheFirstObjectOfAProcessRemovesUnusedFilesIfTheFolderCanBeSearched) {
  EXPECT_EQ(first.withoutFolder, 0);
  EXPECT_EQ(first.withoutStream, 0);
  EXPECT_EQ(first.openedWithoutStream, first.opened);
  EXPECT_TRUE(first.keptUnused);
  EXPECT_FALSE(first.keptGone);
}

// ---- Making ----

struct Failing {
  const char* call;
  uint32_t passed;
  int error;
  NamedShape shape;
};

void PrintTo(const Failing& failing, std::ostream* out) {
  *out << failing.call << " after " << failing.passed;
}

// Whichever call fails, the error is its own, and nothing is left behind.
const Failing kFailing[] = {
    {"mkdir", 0, EIO, kSemaphore},     {"open", 0, EMFILE, kSemaphore},
    {"openat", 0, EMFILE, kSemaphore}, {"posix_fallocate", 0, ENOSPC, kSemaphore},
    {"mmap", 0, ENOMEM, kSemaphore},   {"pthread_mutex_init", 0, ENOMEM, kMutex},
    {"calloc", 0, ENOMEM, kSemaphore},
};

class MakingFails : public NamedCalls, public testing::WithParamInterface<Failing> {};

TEST_P(MakingFails, SaysWhyAndLeavesNothing) {
  {
    const AnsweredCall refused(GetParam().call, Refuse(GetParam().error, GetParam().passed, 1));
    ExpectFailed(Make(GetParam().shape), static_cast<uint32_t>(GetParam().error));
    EXPECT_EQ(refused.answered(), 1u);
  }
  ExpectFailed(Open(GetParam().shape.kind), ENOENT);
}

INSTANTIATE_TEST_SUITE_P(NamedCalls, MakingFails, testing::ValuesIn(kFailing));

TEST_F(NamedCalls, ABlockWithoutADescriptorOfItsOwnIsNotMade) {
  // The copy of the block's descriptor is the only such command.
  const AnsweredCall refused("fcntl", [](const Words& arguments, Word*) {
    if (arguments[1] != F_DUPFD_CLOEXEC) return Answer::kPass;
    errno = EMFILE;
    return Answer::kRefuse;
  });
  ExpectFailed(Make(kBlock), EMFILE);
}

TEST_F(NamedCalls, AnObjectThatCannotBeHeldIsNotMade) {
  const AnsweredCall refused("fcntl", [](const Words& arguments, Word*) {
    const auto* lock = reinterpret_cast<const struct flock*>(arguments[2]);
    if (arguments[1] != F_OFD_SETLK || lock->l_type != F_RDLCK) return Answer::kPass;
    errno = ENOLCK;
    return Answer::kRefuse;
  });
  ExpectFailed(Make(kSemaphore), ENOLCK);
}

TEST_F(NamedCalls, AFileThatCannotBeMadeAnewAfterItsRemovalIsAFailure) {
  std::ofstream(ObjectFile()) << "of an ended process";
  const AnsweredCall refused("openat", Refuse(EMFILE, 1, 1));
  ExpectFailed(Make(kSemaphore), EMFILE);
}

TEST_F(NamedCalls, TheFileOfTheHoldersMustBeExamined) {
  // In a new process, which opens the file: the second examined descriptor is the file's.
  EXPECT_EQ(RunInChild([] {
              const AnsweredCall refused("fstat", Refuse(EIO, 2, 1));
              const uint32_t error = Make(kSemaphore).error;
              return refused.answered() == 1 ? static_cast<int>(error) : -1;
            }),
            EIO);
}

// ---- Files of others ----

TEST_F(NamedCalls, AFileOfAnotherUserIsNoObject) {
  std::ofstream(ObjectFile()).close();
  {
    // The third user asked for is the owner of the file.
    const AnsweredCall other("geteuid", Give(kStranger, 2, 1));
    ExpectFailed(Open(NamedKind::kSemaphore), EACCES);
    EXPECT_EQ(other.answered(), 1u);
  }
  std::filesystem::remove(ObjectFile());
}

TEST_F(NamedCalls, AFolderOfAnotherUserOrThatOthersMayEnterIsNotUsed) {
  {
    const AnsweredCall other("geteuid", Give(kStranger, 1, 1));
    ExpectFailed(OpenNameFolder(), EACCES);
  }
  ASSERT_EQ(chmod(NameFolder().c_str(), 0750), 0);
  ExpectFailed(OpenNameFolder(), EACCES);
  ASSERT_EQ(chmod(NameFolder().c_str(), 0700), 0);
  const AnsweredCall refused("fstat", Refuse(EIO, 0, 1));
  ExpectFailed(OpenNameFolder(), EIO);
}

// A file that another process holds, with content of its own.
class ForeignFile : public NamedCalls {
 protected:
  ~ForeignFile() override { std::filesystem::remove(ObjectFile()); }

  // The outcome of an open while another process holds a copy of the object under this name.
  uint32_t OpenWhileHeld(const std::function<void()>& change, NamedKind kind) {
    int ready[2];
    int done[2];
    EXPECT_EQ(pipe(ready), 0);
    EXPECT_EQ(pipe(done), 0);
    const pid_t holder = fork();
    if (holder == 0) {
      char byte = 0;
      close(done[1]);  // so that the end of this process is the end of the pipe
      if (MakeNamed(kName.c_str(), kSemaphore).ok) static_cast<void>(write(ready[1], &byte, 1));
      static_cast<void>(read(done[0], &byte, 1));
      _exit(0);
    }
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1) << "the other process has not made the object";
    change();
    const ValueResult<NamedObject*> opened = Open(kind);
    if (opened.ok) ReleaseNamed(opened.value);
    EXPECT_EQ(write(done[1], &byte, 1), 1);
    EXPECT_EQ(waitpid(holder, nullptr, 0), holder);
    for (const int end : {ready[0], done[0], done[1]}) close(end);
    return opened.error;
  }
};

void Overwrite(size_t offset, const std::string& bytes) {
  std::fstream file(ObjectFile(), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(offset));
  file << bytes;
}

// Where the header has its fields: the magic number, and the name behind four words of 32 bits.
constexpr size_t kMagicOffset = 0;
constexpr size_t kNameOffset = 20;

TEST_F(ForeignFile, AnObjectOfAnotherProcessCanBeOpened) {
  EXPECT_EQ(OpenWhileHeld([] {}, NamedKind::kSemaphore), 0u);
}

TEST_F(ForeignFile, AFileWithoutTheMagicNumberIsNoObject) {
  EXPECT_EQ(OpenWhileHeld([] { Overwrite(kMagicOffset, "?"); }, NamedKind::kSemaphore),
            uint32_t{EACCES});
}

TEST_F(ForeignFile, AFileWithAnotherNameIsNoObject) {
  EXPECT_EQ(OpenWhileHeld([] { Overwrite(kNameOffset, "?"); }, NamedKind::kSemaphore),
            uint32_t{EACCES});
}

TEST_F(ForeignFile, AFileThatIsTooShortIsNoObject) {
  EXPECT_EQ(OpenWhileHeld([] { EXPECT_EQ(truncate(ObjectFile().c_str(), 100), 0); },
                          NamedKind::kSemaphore),
            uint32_t{EACCES});
}

TEST_F(ForeignFile, AnObjectHasOneKindInAllProcesses) {
  EXPECT_EQ(OpenWhileHeld([] {}, NamedKind::kMutex), uint32_t{EEXIST});
}

TEST_F(ForeignFile, AnObjectWhoseHeaderCannotBeMappedIsNotOpened) {
  std::optional<AnsweredCall> refused;  // after the other process has made the object
  EXPECT_EQ(OpenWhileHeld([&] { refused.emplace("mmap", Refuse(ENOMEM)); }, NamedKind::kSemaphore),
            uint32_t{ENOMEM});
}

// The size is the file's own, whatever it was when the object was made.
TEST_F(NamedCalls, ABlockWhoseFileCannotBeMeasuredOrIsCutHasNoBytes) {
  {
    // The folder, the descriptor of the holders, the object's file, and then the block's size.
    const AnsweredCall refused("fstat", Refuse(EIO, 3, 1));
    const ValueResult<NamedObject*> made = Make(kBlock);
    ASSERT_TRUE(made.ok);
    EXPECT_EQ(refused.answered(), 1u);
    EXPECT_EQ(made.value->blockBytes, 0u);
    ReleaseNamed(made.value);
  }
  const AnsweredCall cut("fcntl", [](const Words& arguments, Word*) {
    if (arguments[1] == F_DUPFD_CLOEXEC) {
      EXPECT_EQ(ftruncate(static_cast<int>(arguments[0]), 9), 0);
    }
    return Answer::kPass;
  });
  const ValueResult<NamedObject*> made = Make(kBlock);
  ASSERT_TRUE(made.ok);
  EXPECT_EQ(made.value->blockBytes, 0u);
  ReleaseNamed(made.value);
}

// ---- Closing ----

TEST_F(NamedCalls, AnObjectWhoseFileIsAnotherByNowLeavesThatOne) {
  const ValueResult<NamedObject*> made = Make(kSemaphore);
  std::filesystem::remove(ObjectFile());
  std::ofstream(ObjectFile()).close();
  ReleaseNamed(made.value);
  EXPECT_TRUE(std::filesystem::exists(ObjectFile()));
  std::filesystem::remove(ObjectFile());
}

// Another file system was mounted over the folder.
TEST_F(NamedCalls, AFileOfAnotherDeviceIsNotTheObjects) {
  const ValueResult<NamedObject*> made = Make(kSemaphore);
  {
    const AnsweredCall elsewhere("fstatat", [](const Words& arguments, Word* word) {
      if (std::strcmp(reinterpret_cast<const char*>(arguments[1]), "holders") == 0) {
        return Answer::kPass;
      }
      auto* found = reinterpret_cast<struct stat*>(arguments[2]);
      EXPECT_EQ(stat(ObjectFile().c_str(), found), 0);
      ++found->st_dev;
      *word = 0;
      return Answer::kGive;
    });
    ReleaseNamed(made.value);
  }
  EXPECT_TRUE(std::filesystem::exists(ObjectFile()));
  ExpectFailed(Open(NamedKind::kSemaphore), ENOENT);
}

TEST_F(NamedCalls, AnObjectIsFoundByItsDeviceToo) {
  const ValueResult<NamedObject*> made = Make(kSemaphore);
  {
    // The file seems to lie on another device, where the same number is another file.
    const AnsweredCall elsewhere("fstat", [](const Words& arguments, Word* word) {
      auto* found = reinterpret_cast<struct stat*>(arguments[1]);
      struct stat real = {};
      EXPECT_EQ(stat(ObjectFile().c_str(), &real), 0);
      if (fstat(static_cast<int>(arguments[0]), found) != 0 || found->st_ino != real.st_ino) {
        return Answer::kPass;
      }
      ++found->st_dev;
      *word = 0;
      return Answer::kGive;
    });
    ExpectFailed(Open(NamedKind::kSemaphore), ENOENT);
  }
  ReleaseNamed(made.value);
}

// ---- A mutex that a thread owns without a handle ----

// Another process that has the test's mutex open until its destructor runs.
class Holder {
 public:
  Holder() {
    EXPECT_EQ(pipe(go_), 0);
    EXPECT_EQ(pipe(ready_), 0);
    process_ = fork();
    if (process_ == 0) Run();
  }
  ~Holder() {
    Tell();
    EXPECT_EQ(waitpid(process_, nullptr, 0), process_);
    for (const int end : {go_[0], go_[1], ready_[0], ready_[1]}) close(end);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  void Open() {
    Tell();
    char byte = 0;
    EXPECT_EQ(read(ready_[0], &byte, 1), 1);
  }

 private:
  void Tell() { EXPECT_EQ(write(go_[1], "", 1), 1); }

  [[noreturn]] void Run() {
    char byte = 0;
    close(go_[1]);  // so that the end of the test is the end of the pipe
    static_cast<void>(read(go_[0], &byte, 1));
    const bool isOpen = OpenNamed(kName.c_str(), NamedKind::kMutex).ok;
    if (isOpen) static_cast<void>(write(ready_[1], &byte, 1));
    static_cast<void>(read(go_[0], &byte, 1));
    _exit(0);
  }

  int go_[2];
  int ready_[2];
  pid_t process_;
};

// Puts an empty file in the place of the holders' one.
void RenewHolders() {
  const std::string holders = NameFolder() + "holders";
  std::ofstream(holders + ".new").close();
  std::filesystem::rename(holders + ".new", holders);
}

TEST_F(ForeignFile, WhatAProcessHoldsIsHeldAgainInANewFileOfHolders) {
  Holder other;
  const ValueResult<NamedObject*> made = Make(kMutex);
  RenewHolders();
  ReleaseNamed(MakeNamed("another", kSemaphore).value);
  other.Open();
  ReleaseNamed(made.value);
}

// Until then, the new file is not known to hold anything.
TEST_F(ForeignFile, WhatAProcessHoldsIsHeldAgainWhenItCanExcludeTheOthers) {
  Holder other;
  const ValueResult<NamedObject*> made = Make(kMutex);
  RenewHolders();
  {
    const AnsweredCall refused("fcntl", [](const Words& arguments, Word*) {
      if (arguments[1] != F_OFD_SETLKW) return Answer::kPass;
      errno = ENOLCK;
      return Answer::kRefuse;
    });
    ExpectFailed(MakeNamed("another", kSemaphore), ENOLCK);
  }
  ReleaseNamed(MakeNamed("another", kSemaphore).value);
  other.Open();
  ReleaseNamed(made.value);
}

// A thread that owns a mutex until it is told to release it.
class Owner {
 public:
  explicit Owner(OwnedMutex* mutex)
      : thread_([=, this] {
          ExpectWait(TakeMutex(mutex, 0), kWaitSignalled, 0);
          step_ = 1;
          while (step_ != 2) std::this_thread::yield();
          EXPECT_TRUE(kiv::os::ReleaseMutex(mutex).ok);
        }) {
    while (step_ != 1) std::this_thread::yield();
  }
  ~Owner() {
    step_ = 2;
    thread_.join();
  }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;

 private:
  std::atomic<int> step_{0};
  std::thread thread_;
};

TEST_F(ForeignFile, AnOwnedMutexIsStillThereWhenItIsOpenedAgain) {
  Holder holder;
  const ValueResult<NamedObject*> made = Make(kMutex);
  holder.Open();
  {
    const Owner owner(&made.value->mutex);
    ReleaseNamed(made.value);
    {
      const AnsweredCall refused("fcntl", [](const Words& arguments, Word*) {
        const auto* lock = reinterpret_cast<const struct flock*>(arguments[2]);
        if (arguments[1] != F_OFD_SETLK || lock->l_type != F_RDLCK) return Answer::kPass;
        errno = ENOLCK;
        return Answer::kRefuse;
      });
      ExpectFailed(Open(NamedKind::kMutex), ENOLCK);
    }
    const ValueResult<NamedObject*> again = Open(NamedKind::kMutex);
    EXPECT_TRUE(again.ok);
    EXPECT_EQ(again.value, made.value) << "one object has one record";
  }
  ReleaseNamed(made.value);
}

// Nobody holds it: it is not held again.
TEST_F(ForeignFile, AnOwnedMutexWithoutAHandleIsNotHeldInANewFileOfHolders) {
  const ValueResult<NamedObject*> made = Make(kMutex);
  {
    const Owner owner(&made.value->mutex);
    ReleaseNamed(made.value);
    RenewHolders();
    ExpectFailed(Open(NamedKind::kMutex), ENOENT);
  }
  EXPECT_EQ(MakeAndRelease(), 0);
}

// Its record is freed by the next use of any name.
TEST_F(NamedCalls, AnOwnedMutexWithoutAHandleIsFreedAfterItsRelease) {
  const ValueResult<NamedObject*> made = Make(kMutex);
  {
    const Owner owner(&made.value->mutex);
    ReleaseNamed(made.value);
  }
  uint32_t freed = 0;
  const AnsweredCall frees("munmap", [&](const Words&, Word*) {
    ++freed;
    return Answer::kPass;
  });
  EXPECT_EQ(MakeAndRelease(), 0);
  EXPECT_EQ(freed, 2u) << "the mutex, and the object that was made now";
}

// ---- Mutexes ----

class Mutexes : public testing::Test {
 protected:
  Mutexes() { EXPECT_TRUE(PrepareMutex(&storage_, Scope::kProcess).ok); }

  pthread_mutex_t storage_ = {};
  OwnedMutex mutex_ = {&storage_, {0}, 0};
};

TEST_F(Mutexes, AMutexCountsItsOwnersRequestsUpToALimit) {
  ExpectWait(TakeMutex(&mutex_, 0), kWaitSignalled, 0);
  mutex_.depth = UINT32_MAX;
  ExpectWait(TakeMutex(&mutex_, 0), 0xFFFFFFFF, EAGAIN);
  mutex_.depth = 1;
  EXPECT_TRUE(kiv::os::ReleaseMutex(&mutex_).ok);
  EndMutex(&mutex_);
}

// Its owner ended, and the next one released it without a repair.
TEST_F(Mutexes, AMutexThatCannotBeRepairedIsAFailure) {
  std::thread([&] { EXPECT_EQ(pthread_mutex_lock(&storage_), 0); }).join();
  EXPECT_EQ(pthread_mutex_lock(&storage_), EOWNERDEAD);
  EXPECT_EQ(pthread_mutex_unlock(&storage_), 0);
  ExpectWait(TakeMutex(&mutex_, 0), 0xFFFFFFFF, ENOTRECOVERABLE);
}

TEST_F(Mutexes, AMutexOfAnEndedOwnerIsOwnedByNobodyHere) {
  EXPECT_EQ(pthread_mutex_lock(&storage_), 0);
  EXPECT_TRUE(IsOwnedHere(&mutex_));
  storage_.__data.__lock |= FUTEX_OWNER_DIED;
  EXPECT_FALSE(IsOwnedHere(&mutex_));
  storage_.__data.__lock &= ~FUTEX_OWNER_DIED;
  EXPECT_EQ(pthread_mutex_unlock(&storage_), 0);
  EXPECT_FALSE(IsOwnedHere(&mutex_));
}

// In a forked child, a thread of the parent may seem to own it.
TEST_F(Mutexes, AMutexOfAThreadOfAnotherProcessEndsAsItIs) {
  constexpr int kFirstProcess = 1;
  storage_.__data.__lock = kFirstProcess;
  EXPECT_FALSE(IsOwnedHere(&mutex_));
  EndMutex(&mutex_);
  EXPECT_EQ(storage_.__data.__lock, kFirstProcess);
}

// A thread that owns an unnamed mutex, whose last handle is closed meanwhile, until it is told to end.
class OwnerWithoutHandle {
 public:
  OwnerWithoutHandle()
      : thread_([this] {
          const ValueResult<void*> made = MakeMutex(nullptr);
          ExpectWait(kiv::os::WaitOne(made.value, 0), kWaitSignalled, 0);
          handle_ = made.value;
          while (!mayEnd_) std::this_thread::yield();
        }) {
    while (handle_ == nullptr) std::this_thread::yield();
    EXPECT_TRUE(CloseObject(handle_).ok);
  }
  void End() {
    mayEnd_ = true;
    thread_.join();
  }

 private:
  std::atomic<void*> handle_{nullptr};
  std::atomic<bool> mayEnd_{false};
  std::thread thread_;
};

// The next mutex that is set aside frees those whose owners have ended, and no other.
TEST_F(NamedCalls, AnUnnamedMutexThatIsOwnedWithoutAHandleIsFreedWhenItsOwnerHasEnded) {
  uint32_t freed = 0;
  const AnsweredCall frees("EndMutex", [&](const Words&, Word*) {
    ++freed;
    return Answer::kPass;
  });
  OwnerWithoutHandle one;
  OwnerWithoutHandle another;
  EXPECT_EQ(freed, 0u);
  one.End();
  OwnerWithoutHandle third;
  EXPECT_EQ(freed, 1u);
  another.End();
  third.End();
  OwnerWithoutHandle last;
  EXPECT_EQ(freed, 3u);
  last.End();
}

TEST_F(NamedCalls, AMutexThatCannotBePreparedIsNotMade) {
  const AnsweredCall refused("pthread_mutex_init", Refuse(ENOMEM));
  ExpectFailed(MakeMutex(nullptr), ENOMEM);
}

// ---- The folder's place ----

// The process's own folder of names shows where the library looks without /dev/shm.
class FolderElsewhere : public testing::Test {
 protected:
  ~FolderElsewhere() override {
    if (before_.empty())
      unsetenv("XDG_RUNTIME_DIR");
    else
      setenv("XDG_RUNTIME_DIR", before_.c_str(), 1);
  }

  static std::string Place() {
    char path[PATH_MAX];
    EXPECT_TRUE(NameFolderPath(path, sizeof path).ok);
    return path;
  }

  const std::string own_ = "/kivsdu-" + std::to_string(geteuid());
  const char* const known_ = std::getenv("XDG_RUNTIME_DIR");
  const std::string before_ = known_ == nullptr ? "" : known_;
};

TEST_F(FolderElsewhere, LiesInTheRuntimeFolderIfThatIsAnAbsolutePathOfAFolder) {
  const TemporaryFolder folder;
  folder.Write("file", "");
  setenv("XDG_RUNTIME_DIR", folder.Path().c_str(), 1);
  const std::string place = Place();
  EXPECT_EQ(std::filesystem::path(place).filename(), own_.substr(1));
  EXPECT_TRUE(
      std::filesystem::equivalent(std::filesystem::path(place).parent_path(), folder.Path()));
  for (const std::string& other : {folder.Path("file"), folder.Path("missing"), std::string(".")}) {
    setenv("XDG_RUNTIME_DIR", other.c_str(), 1);
    EXPECT_EQ(Place(), "/tmp" + own_) << other;
  }
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(Place(), "/tmp" + own_);
}

TEST_F(FolderElsewhere, IsMadeForItsUserAlone) {
  const TemporaryFolder folder;
  setenv("XDG_RUNTIME_DIR", folder.Path().c_str(), 1);
  const ValueResult<int> opened = OpenNameFolder();
  ASSERT_TRUE(opened.ok);
  struct stat made = {};
  EXPECT_EQ(fstat(opened.value, &made), 0);
  EXPECT_EQ(made.st_mode & 0777, 0700u);
  close(opened.value);
}

TEST_F(FolderElsewhere, HasAPathThatFits) {
  char path[PATH_MAX];
  const size_t length = ("/tmp" + own_).size();
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_TRUE(NameFolderPath(path, length + 1).ok);
  EXPECT_EQ(NameFolderPath(path, length).error, uint32_t{ENAMETOOLONG});

  setenv("XDG_RUNTIME_DIR", ("/" + std::string(PATH_MAX - 5, 'x')).c_str(), 1);
  const AnsweredCall deep("stat", [](const Words& arguments, Word* word) {
    if (std::strcmp(reinterpret_cast<const char*>(arguments[0]), "/dev/shm") == 0) {
      return Answer::kPass;
    }
    reinterpret_cast<struct stat*>(arguments[1])->st_mode = S_IFDIR;
    *word = 0;
    return Answer::kGive;
  });
  ExpectFailed(OpenNameFolder(), ENAMETOOLONG);
}

}  // namespace
