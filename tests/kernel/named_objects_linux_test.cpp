// Named objects on Linux: they end with their last handle, also if a process is killed at any step;
// the folder, the files and the headers are not trusted; any text can be a name.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/lnx/name_folder.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/waiting.h"

// ---- A process that kills itself at its n-th call of the system ----

namespace {

int callsLeft = -1;  // below 0: never

void DieHere() {
  if (callsLeft == 0) kill(getpid(), SIGKILL);
  if (callsLeft > 0) --callsLeft;
}

}  // namespace

// The linker sends the library's calls here (--wrap).
#define KIV_KILL_POINT(result, name, parameters, arguments) \
  extern "C" result __real_##name parameters;               \
  extern "C" result __wrap_##name parameters {              \
    DieHere();                                              \
    return __real_##name arguments;                         \
  }

KIV_KILL_POINT(int, mkdir, (const char* path, mode_t mode), (path, mode))
KIV_KILL_POINT(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode))
KIV_KILL_POINT(int, openat, (int folder, const char* path, int flags, mode_t mode),
               (folder, path, flags, mode))
KIV_KILL_POINT(int, posix_fallocate, (int file, off_t offset, off_t size), (file, offset, size))
KIV_KILL_POINT(int, unlinkat, (int folder, const char* path, int flags), (folder, path, flags))
KIV_KILL_POINT(void*, mmap,
               (void* place, size_t size, int access, int flags, int file, off_t offset),
               (place, size, access, flags, file, offset))
KIV_KILL_POINT(int, munmap, (void* place, size_t size), (place, size))
KIV_KILL_POINT(int, close, (int file), (file))

// A question changes nothing, so that a kill before it is one before the next call. A process that
// makes its first object asks about the objects of all processes, whose number other tests decide.
extern "C" int __real_fcntl(int file, int command, void* argument);
extern "C" int __wrap_fcntl(int file, int command, void* argument) {
  if (command != F_OFD_GETLK) DieHere();
  return __real_fcntl(file, command, argument);
}

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kKilled;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::kRoleFailed;
using kiv::test::kShortMs;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;
using kiv::test::UniqueName;

constexpr uint32_t kBlockBytes = 10'000;

std::string FolderPath() {
  char path[PATH_MAX];
  EXPECT_TRUE(kiv::os::NameFolderPath(path, sizeof path).ok);
  return path;
}

std::string FileOf(const std::string& name) {
  kiv::os::NameFile file;
  EXPECT_TRUE(kiv::os::FileOfName(kiv::os::kObjectFile, name.c_str(), &file).ok);
  return FolderPath() + "/" + file.text;
}

bool HasFile(const std::string& name) { return access(FileOf(name).c_str(), F_OK) == 0; }

uint32_t ErrorOf(const Context& ctx) { return ctx.osError(); }

// One kind of named object.
struct Kind {
  const char* name;
  uint32_t (*make)(KivSdContext* ctx, const char* name, KivHandle* object);
  uint32_t (*open)(KivSdContext* ctx, const char* name, KivHandle* object);
  uint32_t (*close)(KivHandle* object);
  void (*use)(KivHandle* object);
};

uint32_t MakeSemaphore(KivSdContext* ctx, const char* name, KivHandle* object) {
  return KivSdCntSemCreate(ctx, name, 2, 3, object);
}
uint32_t CloseSemaphore(KivHandle* object) { return KivSdCntSemClose(nullptr, object); }
void UseSemaphore(KivHandle* object) {
  EXPECT_EQ(KivSdCntSemRequest(nullptr, object, 0), KIV_ST_OK);
  int32_t previous = -1;
  EXPECT_EQ(KivSdCntSemClear(nullptr, object, 1, &previous), KIV_ST_OK);
  EXPECT_EQ(previous, 1);
}
uint32_t CloseMutex(KivHandle* object) { return KivSdMutexClose(nullptr, object); }
void UseMutex(KivHandle* object) {
  EXPECT_EQ(KivSdMutexRequest(nullptr, object, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexClear(nullptr, object), KIV_ST_OK);
}

// The view is unmapped at once: only the handle holds a block.
uint32_t AllocateBlock(KivSdContext* ctx, const char* name, uint32_t flags, KivHandle* object) {
  uint32_t id = 0;
  void* view = nullptr;
  const uint32_t status = KivSdSharedMemAlloc(ctx, name, kBlockBytes, flags,
                                              KIV_SHAREDMEM_PAGES_READ_WRITE, object, &id, &view);
  if (view != nullptr) {
    std::memset(view, 7, kBlockBytes);
    EXPECT_EQ(KivSdSharedMemFree(nullptr, nullptr, view), KIV_ST_SHARED_MEM_FREE);
  }
  return status;
}
uint32_t MakeBlock(KivSdContext* ctx, const char* name, KivHandle* object) {
  return AllocateBlock(ctx, name, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE, object);
}
uint32_t OpenBlock(KivSdContext* ctx, const char* name, KivHandle* object) {
  return AllocateBlock(ctx, name, KIV_SHAREDMEM_WRITE, object);
}
uint32_t CloseBlock(KivHandle* object) { return KivSdSharedMemFree(nullptr, *object, nullptr); }
void UseBlock(KivHandle*) {}

const Kind kKinds[] = {{"Semaphore", MakeSemaphore, KivSdCntSemOpen, CloseSemaphore, UseSemaphore},
                       {"Mutex", KivSdMutexCreate, KivSdMutexOpen, CloseMutex, UseMutex},
                       {"Block", MakeBlock, OpenBlock, CloseBlock, UseBlock}};

const Kind& KindOfName(const std::string& name) {
  for (const Kind& kind : kKinds) {
    if (name == kind.name) return kind;
  }
  return kKinds[0];
}

class NamedObject : public testing::TestWithParam<Kind> {
 protected:
  uint32_t Make(const std::string& name, KivHandle* object) {
    return GetParam().make(ctx_, name.c_str(), object);
  }
  uint32_t Open(const std::string& name, KivHandle* object) {
    return GetParam().open(ctx_, name.c_str(), object);
  }
  uint32_t Close(KivHandle* object) { return GetParam().close(object); }

  void ExpectMissing(const std::string& name) {
    KivHandle opened = nullptr;
    EXPECT_NE(Open(name, &opened), KIV_ST_OK) << name;
    EXPECT_EQ(ErrorOf(ctx_), static_cast<uint32_t>(ENOENT)) << name;
  }

  // A new object of the name works, and its last close removes it.
  void ExpectUsable(const std::string& name) {
    KivHandle made = nullptr;
    EXPECT_EQ(Make(name, &made), KIV_ST_OK) << ErrorOf(ctx_);
    GetParam().use(&made);
    EXPECT_EQ(Close(&made), KIV_ST_OK);
    ExpectMissing(name);
    EXPECT_FALSE(HasFile(name));
  }

  Context ctx_;
};

// ---- Lifetime ----

TEST_P(NamedObject, EndsWithItsLastHandle) {
  const std::string name = UniqueName("last");
  KivHandle handles[3] = {};
  EXPECT_EQ(Make(name, &handles[0]), KIV_ST_OK);
  EXPECT_EQ(Make(name, &handles[1]), KIV_ST_OK);
  EXPECT_EQ(Open(name, &handles[2]), KIV_ST_OK);
  for (KivHandle& handle : handles) {
    EXPECT_TRUE(HasFile(name));
    EXPECT_EQ(Close(&handle), KIV_ST_OK);
  }
  EXPECT_FALSE(HasFile(name));
  ExpectMissing(name);
}

const std::map<std::string, std::function<void(const Kind&, const char*, KivHandle*)>> kSteps = {
    {"make", [](const Kind& kind, const char* name,
                KivHandle* object) { kind.make(nullptr, name, object); }},
    {"open", [](const Kind& kind, const char* name,
                KivHandle* object) { kind.open(nullptr, name, object); }},
    {"close", [](const Kind& kind, const char*, KivHandle* object) { kind.close(object); }}};

// {kind, steps, name, calls}: kills itself at a call of the system within the steps.
const RegisteredRole killedRole("killed", [](const RoleArguments& arguments) {
  const Kind& kind = KindOfName(arguments[0]);
  KivHandle object = nullptr;
  if (arguments[1] == "close" && kind.make(nullptr, arguments[2].c_str(), &object) != KIV_ST_OK) {
    return kRoleFailed;
  }
  callsLeft = std::stoi(arguments[3]);
  kSteps.at(arguments[1])(kind, arguments[2].c_str(), &object);
  callsLeft = -1;
  return kRoleDone;
});

constexpr int kMostCalls = 200;

TEST_P(NamedObject, IsGoneIfItsOnlyProcessIsKilledAtAnyStep) {
  for (const auto& [step, run] : kSteps) {
    const std::string name = UniqueName("killed");
    int calls = 0;
    for (uint32_t code = kKilled; code == kKilled && calls < kMostCalls; ++calls) {
      const ChildProcess child("killed", {GetParam().name, step, name, std::to_string(calls)});
      code = child.ExitCode();
      EXPECT_TRUE(code == kKilled || code == kRoleDone) << code;
      ExpectMissing(name);
      if (calls % 2 == 0) ExpectUsable(name);
    }
    EXPECT_GT(calls, 5) << step << ": the calls do not reach the kill points";
    EXPECT_LT(calls, kMostCalls);
  }
}

TEST_P(NamedObject, StaysUsableIfAnotherProcessIsKilledAtAnyStep) {
  for (const auto& [step, run] : kSteps) {
    const std::string name = UniqueName("kept");
    KivHandle kept = nullptr;
    ASSERT_EQ(Make(name, &kept), KIV_ST_OK);
    int calls = 0;
    for (uint32_t code = kKilled; code == kKilled && calls < kMostCalls; ++calls) {
      const ChildProcess child("killed", {GetParam().name, step, name, std::to_string(calls)});
      code = child.ExitCode();
      EXPECT_TRUE(code == kKilled || code == kRoleDone) << code;
      GetParam().use(&kept);
      KivHandle again = nullptr;
      EXPECT_EQ(Open(name, &again), KIV_ST_OK);
      EXPECT_EQ(Close(&again), KIV_ST_OK);
    }
    EXPECT_GT(calls, 5) << step;
    EXPECT_EQ(Close(&kept), KIV_ST_OK);
    ExpectMissing(name);
    EXPECT_FALSE(HasFile(name));
  }
}

// {kind, name}: opens the object and tells the error.
const RegisteredRole openerRole("opens", [](const RoleArguments& arguments) {
  const Kind& kind = KindOfName(arguments[0]);
  Context ctx;
  KivHandle opened = nullptr;
  if (kind.open(ctx, arguments[1].c_str(), &opened) != KIV_ST_OK) return ctx.osError();
  return kind.close(&opened) == KIV_ST_OK ? kRoleDone : kRoleFailed;
});

uint32_t ErrorOfOtherProcess(const Kind& kind, const std::string& name) {
  return ChildProcess("opens", {kind.name, name}).ExitCode();
}

// {kind, name}: makes an object and ends without closing it.
const RegisteredRole leaverRole("leaves", [](const RoleArguments& arguments) {
  KivHandle object = nullptr;
  const Kind& kind = KindOfName(arguments[0]);
  return kind.make(nullptr, arguments[1].c_str(), &object) == KIV_ST_OK ? kRoleDone : kRoleFailed;
});

TEST_P(NamedObject, LeavesAFileThatTheNextProcessRemoves) {
  const std::string left = UniqueName("left");
  const std::string other = UniqueName("other");
  const ChildProcess first("leaves", {GetParam().name, left});
  EXPECT_EQ(first.ExitCode(), kRoleDone);
  EXPECT_TRUE(HasFile(left));
  const ChildProcess second("leaves", {GetParam().name, other});
  EXPECT_EQ(second.ExitCode(), kRoleDone);
  EXPECT_FALSE(HasFile(left));
  ExpectMissing(other);
  EXPECT_FALSE(HasFile(other));
}

TEST_P(NamedObject, OfAForkedChildEndsWithTheChild) {
  KivHandle kept = nullptr;
  const std::string name = UniqueName("parents");
  const std::string childs = UniqueName("childs");
  ASSERT_EQ(Make(name, &kept), KIV_ST_OK);
  const pid_t child = fork();
  if (child == 0) {
    KivHandle own = nullptr;
    if (GetParam().make(nullptr, childs.c_str(), &own) == KIV_ST_OK) kill(getpid(), SIGKILL);
    _exit(1);
  }
  int outcome = 0;
  ASSERT_EQ(waitpid(child, &outcome, 0), child);
  EXPECT_TRUE(WIFSIGNALED(outcome)) << "the child cannot make an object";
  EXPECT_EQ(ErrorOfOtherProcess(GetParam(), childs), static_cast<uint32_t>(ENOENT));
  ExpectMissing(childs);
  GetParam().use(&kept);
  EXPECT_EQ(Close(&kept), KIV_ST_OK);
  ExpectMissing(name);
}

TEST_P(NamedObject, UsesNoDescriptorForEachSemaphoreOrMutex) {
  if (std::string(GetParam().name) == "Block") GTEST_SKIP() << "a block has one";
  const auto countOpen = [] {
    int count = 0;
    for (int file = 0; file < 1024; ++file) count += fcntl(file, F_GETFD, nullptr) != -1 ? 1 : 0;
    return count;
  };
  KivHandle first = nullptr;
  ASSERT_EQ(Make(UniqueName("first"), &first), KIV_ST_OK);
  const int before = countOpen();
  std::vector<KivHandle> handles(100);
  for (KivHandle& handle : handles) ASSERT_EQ(Make(UniqueName("many"), &handle), KIV_ST_OK);
  EXPECT_EQ(countOpen(), before);
  for (KivHandle& handle : handles) EXPECT_EQ(Close(&handle), KIV_ST_OK);
  EXPECT_EQ(Close(&first), KIV_ST_OK);
}

TEST_P(NamedObject, SurvivesAHostThatClosesAllDescriptors) {
  const std::string name = UniqueName("closed");
  const pid_t child = fork();  // the test itself needs its descriptors
  if (child == 0) {
    KivHandle made = nullptr;
    KivHandle opened = nullptr;
    bool ok = GetParam().make(nullptr, name.c_str(), &made) == KIV_ST_OK;
    for (int file = 3; file < 100; ++file) close(file);
    const std::string other = name + "-other";
    ok = ok && GetParam().make(nullptr, other.c_str(), &opened) == KIV_ST_OK;
    _exit(ok && GetParam().close(&opened) == KIV_ST_OK ? 0 : 1);
  }
  int outcome = 0;
  ASSERT_EQ(waitpid(child, &outcome, 0), child);
  EXPECT_EQ(outcome, 0);
  ExpectMissing(name);
}

// ---- Names ----

TEST_P(NamedObject, CanHaveAnyTextAsItsName) {
  const std::string own = UniqueName("text");
  for (const std::string& text :
       {std::string("/"), std::string("../../escape"), std::string("a b\tc"), std::string("%2F"),
        std::string("\\pipe\\x"), std::string("."), std::string("\x01\xFF"), std::string("\n")}) {
    ExpectUsable(own + text);
    ExpectUsable(text + own);
  }
  ExpectUsable("");
  ExpectUsable("..");
}

TEST_P(NamedObject, DiffersFromEveryOtherName) {
  const std::string own = UniqueName("differ");
  const std::string pairs[][2] = {
      {own + "/", own + "%2F"},
      {own + "a", own + "A"},
      {own + std::string(200, 'l') + "1", own + std::string(200, 'l')},
      {own + std::string(200, '/') + "1", own + std::string(200, '/') + "2"}};
  for (const auto& [one, other] : pairs) {
    KivHandle made = nullptr;
    ASSERT_EQ(Make(one, &made), KIV_ST_OK);
    ExpectMissing(other);
    EXPECT_EQ(Close(&made), KIV_ST_OK);
  }
}

TEST_P(NamedObject, CanHaveANameOf259CharactersAndNoMore) {
  const std::string own = UniqueName("n");
  for (const std::string& character : {std::string("n"), std::string("\xE3\x81\x82"),
                                       std::string("\xF0\x9F\x90\x98"), std::string("/")}) {
    std::string longest = own;
    for (size_t i = own.size(); i < 259; ++i) longest += character;
    ExpectUsable(longest);
    KivHandle made = nullptr;
    EXPECT_NE(Make(longest + "n", &made), KIV_ST_OK);
    EXPECT_EQ(ErrorOf(ctx_), static_cast<uint32_t>(ENAMETOOLONG));
  }
  KivHandle made = nullptr;
  EXPECT_NE(Make(std::string(5000, '\x80'), &made), KIV_ST_OK);
  EXPECT_EQ(ErrorOf(ctx_), static_cast<uint32_t>(ENAMETOOLONG));
}

TEST_P(NamedObject, OfAnotherKindIsRefused) {
  for (const Kind& other : kKinds) {
    if (other.make == GetParam().make) continue;
    const std::string name = UniqueName("kind");
    KivHandle taken = nullptr;
    ASSERT_EQ(other.make(nullptr, name.c_str(), &taken), KIV_ST_OK);
    KivHandle made = nullptr;
    EXPECT_NE(Make(name, &made), KIV_ST_OK);
    EXPECT_EQ(ErrorOf(ctx_), static_cast<uint32_t>(EEXIST));
    EXPECT_NE(Open(name, &made), KIV_ST_OK);
    EXPECT_EQ(ErrorOf(ctx_), static_cast<uint32_t>(EEXIST));
    other.use(&taken);
    EXPECT_EQ(other.close(&taken), KIV_ST_OK);
    ExpectUsable(name);
  }
}

// ---- What another process can write ----

TEST_P(NamedObject, DoesNotFollowLinksAndUsesNoForeignFile) {
  const std::string target = FolderPath() + "/target-of-links";
  std::ofstream(target) << "precious";
  const std::string name = UniqueName("planted");
  const std::string file = FileOf(name);
  const struct {
    std::function<int()> plant;
    int error;
  } plants[] = {{[&] { return symlink(target.c_str(), file.c_str()); }, ELOOP},
                {[&] { return link(target.c_str(), file.c_str()); }, EACCES},
                {[&] { return mkfifo(file.c_str(), 0600); }, EACCES}};
  for (const auto& [plant, error] : plants) {
    ASSERT_EQ(plant(), 0);
    KivHandle made = nullptr;
    EXPECT_NE(Make(name, &made), KIV_ST_OK);
    EXPECT_EQ(ErrorOf(ctx_), static_cast<uint32_t>(error));
    EXPECT_NE(Open(name, &made), KIV_ST_OK);
    EXPECT_EQ(ErrorOf(ctx_), static_cast<uint32_t>(error));
    ASSERT_EQ(unlink(file.c_str()), 0);
  }
  std::string content;
  std::ifstream(target) >> content;
  EXPECT_EQ(content, "precious");
  unlink(target.c_str());
}

TEST_P(NamedObject, IsMadeAnewOverAFileThatNobodyHolds) {
  const std::string name = UniqueName("garbage");
  for (const size_t bytes : {size_t{0}, size_t{1}, size_t{4096}, size_t{100'000}}) {
    std::ofstream(FileOf(name)) << std::string(bytes, '\xFF');
    ExpectMissing(name);
    std::ofstream(FileOf(name)) << std::string(bytes, '\xFF');
    ExpectUsable(name);
  }
}

TEST_P(NamedObject, WithAForeignHeaderIsRefused) {
  const std::string name = UniqueName("header");
  KivHandle made = nullptr;
  ASSERT_EQ(Make(name, &made), KIV_ST_OK);
  EXPECT_EQ(ErrorOfOtherProcess(GetParam(), name), kRoleDone);
  {
    std::fstream file(FileOf(name), std::ios::in | std::ios::out | std::ios::binary);
    file << "nonsense";
  }
  EXPECT_EQ(ErrorOfOtherProcess(GetParam(), name), static_cast<uint32_t>(EACCES));
  EXPECT_EQ(Close(&made), KIV_ST_OK);
}

TEST_P(NamedObject, WithATruncatedFileIsRefused) {
  const std::string name = UniqueName("short");
  KivHandle made = nullptr;
  ASSERT_EQ(Make(name, &made), KIV_ST_OK);
  ASSERT_EQ(truncate(FileOf(name).c_str(), 100), 0);
  EXPECT_EQ(ErrorOfOtherProcess(GetParam(), name), static_cast<uint32_t>(EACCES));
  EXPECT_EQ(Close(&made), KIV_ST_OK);
}

INSTANTIATE_TEST_SUITE_P(All, NamedObject, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return kind.param.name; });

// The words of a semaphore are another process's too: nonsense in them may fail calls, and no more.
TEST(NamedSemaphore, WithNonsenseInItsFileNeverHangsOrCrashes) {
  const std::string name = UniqueName("nonsense");
  for (const int byte : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
    Context ctx;
    KivHandle semaphore = nullptr;
    ASSERT_EQ(KivSdCntSemCreate(ctx, name.c_str(), 1, 2, &semaphore), KIV_ST_OK);
    {
      std::fstream file(FileOf(name), std::ios::in | std::ios::out | std::ios::binary);
      file << std::string(4096, static_cast<char>(byte));
    }
    for (const uint32_t timeoutMs : {0u, 20u}) KivSdCntSemRequest(ctx, &semaphore, timeoutMs);
    KivSdCntSemClear(ctx, &semaphore, 1, nullptr);
    KivSdCntSemRequest(ctx, &semaphore, 20);
    EXPECT_EQ(KivSdCntSemClose(ctx, &semaphore), KIV_ST_OK);
  }
}

// ---- Killed waiters ----

// {name, waits, got}: waits for a unit.
const RegisteredRole waiterRole("waits", [](const RoleArguments& arguments) {
  KivHandle semaphore = nullptr;
  if (KivSdCntSemOpen(nullptr, arguments[0].c_str(), &semaphore) != KIV_ST_OK) return kRoleFailed;
  const SharedSignal waits(arguments[1]);
  waits.Set();
  const uint32_t status = KivSdCntSemRequest(nullptr, &semaphore, kLimitMs);
  return status == KIV_ST_OK ? kRoleDone : kRoleFailed;
});

// Keeps all threads of lower priority from a processor, if the system allows it.
class SoleThread {
 public:
  SoleThread() {
    const sched_param highest = {1};
    sched_setscheduler(0, SCHED_FIFO, &highest);
  }
  ~SoleThread() {
    const sched_param normal = {0};
    sched_setscheduler(0, SCHED_OTHER, &normal);
  }
  SoleThread(const SoleThread&) = delete;
  SoleThread& operator=(const SoleThread&) = delete;
};

// The first waiter is killed between its waking and its running: both share the test's processor.
TEST(NamedSemaphore, ReachesTheNextWaiterIfTheWokenOneIsKilled) {
  cpu_set_t before;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
  sched_getaffinity(0, sizeof before, &before);
  sched_setaffinity(0, sizeof one, &one);
  for (int round = 0; round < 10; ++round) {
    const std::string name = UniqueName("woken");
    KivHandle semaphore = nullptr;
    ASSERT_EQ(KivSdCntSemCreate(nullptr, name.c_str(), 0, 5, &semaphore), KIV_ST_OK);
    const SharedSignal firstWaits(UniqueName("first"));
    const SharedSignal secondWaits(UniqueName("second"));
    const ChildProcess first("waits", {name, firstWaits.name()});
    firstWaits.Await();
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
    const ChildProcess second("waits", {name, secondWaits.name()});
    secondWaits.Await();
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
    {
      const SoleThread alone;
      EXPECT_EQ(KivSdCntSemClear(nullptr, &semaphore, 1, nullptr), KIV_ST_OK);
      kill(static_cast<pid_t>(first.id()), SIGKILL);
    }
    if (first.ExitCode() == kKilled) {
      ASSERT_EQ(second.ExitCode(), kRoleDone);
    }
    EXPECT_EQ(KivSdCntSemClose(nullptr, &semaphore), KIV_ST_OK);
  }
  sched_setaffinity(0, sizeof before, &before);
}

// ---- The folder ----

constexpr uid_t kOtherUser = 54'321;

uint32_t MakeOnce(const std::string& name) {
  Context ctx;
  KivHandle made = nullptr;
  if (KivSdCntSemCreate(ctx, name.c_str(), 0, 1, &made) != KIV_ST_OK) return ctx.osError();
  return KivSdCntSemClose(ctx, &made) == KIV_ST_OK ? kRoleDone : kRoleFailed;
}

// {name}: makes a semaphore as another user and tells the error. Ends at once, because a leak check
// at the end does not work for another user.
const RegisteredRole userRole("as-other-user", [](const RoleArguments& arguments) -> uint32_t {
  if (seteuid(kOtherUser) != 0) return kRoleFailed;
  _exit(static_cast<int>(MakeOnce(arguments[0])));
});

// The folder of a user that this machine does not have.
class NameFolder : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can prepare another user's folder";
    const std::string own = FolderPath();
    path_ = own.substr(0, own.rfind('-') + 1) + std::to_string(kOtherUser);
    RemoveAll();
  }
  void TearDown() override {
    if (!path_.empty()) RemoveAll();
  }

  void RemoveAll() {
    for (const char* file : {"/holders", "/o-any"}) unlink((path_ + file).c_str());
    if (rmdir(path_.c_str()) != 0) unlink(path_.c_str());
    rmdir((path_ + "-real").c_str());
  }

  uint32_t ErrorOfUser() { return ChildProcess("as-other-user", {"any"}).ExitCode(); }

  std::string path_;
};

TEST_F(NameFolder, IsMadeForItsUserAlone) {
  EXPECT_EQ(ErrorOfUser(), kRoleDone);
  struct stat status = {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kOtherUser);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(NameFolder, OfAnotherOwnerIsRefused) {
  ASSERT_EQ(mkdir(path_.c_str(), 0777), 0);
  ASSERT_EQ(chmod(path_.c_str(), 0777), 0);
  EXPECT_EQ(ErrorOfUser(), static_cast<uint32_t>(EACCES));
}

TEST_F(NameFolder, ThatOthersMayEnterIsRefused) {
  ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
  ASSERT_EQ(chown(path_.c_str(), kOtherUser, 0), 0);
  for (const mode_t mode : {0710u, 0701u, 0770u, 0777u}) {
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
    EXPECT_EQ(ErrorOfUser(), static_cast<uint32_t>(EACCES)) << std::oct << mode;
  }
  ASSERT_EQ(chmod(path_.c_str(), 0700), 0);
  EXPECT_EQ(ErrorOfUser(), kRoleDone);
}

TEST_F(NameFolder, ThatIsALinkIsRefused) {
  const std::string real = path_ + "-real";
  ASSERT_EQ(mkdir(real.c_str(), 0700), 0);
  ASSERT_EQ(chown(real.c_str(), kOtherUser, 0), 0);
  ASSERT_EQ(symlink(real.c_str(), path_.c_str()), 0);
  EXPECT_EQ(ErrorOfUser(), static_cast<uint32_t>(ENOTDIR));
}

}  // namespace
