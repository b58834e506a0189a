// Named pipes on Linux: their lifetime in the files of the user's folder, kills, instances in several
// processes, directions, messages, no-wait mode, and refused flags.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/lnx/name_folder.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/system_interface.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::kShortMs;
using kiv::test::Later;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;

constexpr uint32_t kForEverMs = 0xFFFFFFFF;
constexpr uint32_t kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr uint32_t kMessages = PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE;

const KivHandle kInvalid = INVALID_HANDLE_VALUE;

struct Shape {
  uint32_t openMode = PIPE_ACCESS_DUPLEX;
  uint32_t pipeMode = PIPE_TYPE_BYTE;
  uint32_t maximum = 1;
  uint32_t defaultTimeoutMs = 50;
};

uint32_t Create(KivSdContext* ctx, const std::string& name, const Shape& shape, KivHandle* pipe) {
  return KivSdNamedPipeCreate(ctx, name.c_str(), pipe, shape.openMode, shape.pipeMode,
                              shape.maximum, 4096, 4096, shape.defaultTimeoutMs);
}

uint32_t Open(KivSdContext* ctx, const std::string& name, KivHandle* pipe,
              uint32_t access = kReadWrite) {
  return KivSdNamedPipeOpen(ctx, "local", name.c_str(), pipe, access, 0, OPEN_EXISTING, 0);
}

// A handle that the end of the scope closes.
class End {
 public:
  End() = default;
  explicit End(const std::string& name) { CHECK_OK(ctx_, Open(ctx_, name, &pipe_)); }
  End(const std::string& name, const Shape& shape) {
    CHECK_OK(ctx_, Create(ctx_, name, shape, &pipe_));
  }
  ~End() { Close(); }
  End(const End&) = delete;
  End& operator=(const End&) = delete;

  void Close() {
    if (pipe_ == nullptr || pipe_ == kInvalid) return;
    CHECK_OK(ctx_, KivSdPipeClose(ctx_, &pipe_));
    pipe_ = nullptr;
  }
  KivHandle* pipe() { return &pipe_; }

  // The outcome of a transfer: "status/os error" on failure.
  std::string Read(uint32_t atMost) {
    std::string bytes(atMost, '?');
    uint32_t count = 0;
    const uint32_t status = KivSdPipeRead(ctx_, &pipe_, bytes.data(), atMost, &count);
    lastCount_ = count;
    if (status != KIV_ST_OK) return Outcome();
    return bytes.substr(0, count);
  }
  bool Write(const std::string& bytes) {
    uint32_t count = 0;
    const auto length = static_cast<uint32_t>(bytes.size());
    lastCount_ = 0;
    const uint32_t status = KivSdPipeWrite(ctx_, &pipe_, bytes.data(), length, &count);
    lastCount_ = count;
    return status == KIV_ST_OK && count == length;
  }
  std::string Outcome() const {
    return std::to_string(ctx_.status()) + "/" + std::to_string(ctx_.osError());
  }
  uint32_t lastCount() const { return lastCount_; }

 private:
  Context ctx_;
  KivHandle pipe_ = nullptr;
  uint32_t lastCount_ = 0;
};

std::string Failure(uint32_t status, int error) {
  return std::to_string(status) + "/" + std::to_string(error);
}

// The files that stand for a name.
std::vector<std::string> FilesOf(const std::string& name) {
  char folder[4096];
  EXPECT_TRUE(kiv::os::NameFolderPath(folder, sizeof folder).ok);
  std::vector<std::string> files;
  DIR* entries = opendir(folder);
  if (entries == nullptr) return files;
  while (const dirent* entry = readdir(entries)) {
    if (std::strstr(entry->d_name, name.c_str()) != nullptr) files.push_back(entry->d_name);
  }
  closedir(entries);
  return files;
}

void ExpectNoPipe(const std::string& name) {
  Context ctx;
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(ctx, Open(ctx, name, &pipe), KIV_ST_PIPE_OPEN, uint32_t{ENOENT});
  CHECK_OUTCOME(ctx, KivSdNamedPipeWait(ctx, "local", name.c_str(), kForEverMs), KIV_ST_PIPE_WAIT,
                uint32_t{ENOENT});
}

// ---- Lifetime ----

TEST(NamedPipeLife, EndsWithTheLastInstanceAndLeavesNoFile) {
  const std::string name = UniqueName("last");
  {
    const End first(name, {.maximum = 2});
    {
      const End second(name, {.maximum = 2});
      EXPECT_EQ(FilesOf(name).size(), 3u) << "a name and two sockets";
    }
    End client(name);
    EXPECT_EQ(FilesOf(name).size(), 1u) << "the only socket is taken";
  }
  EXPECT_TRUE(FilesOf(name).empty());
  ExpectNoPipe(name);
}

// {name, signal}: makes the pipe, connects it if there is a third argument, and waits to be killed.
const RegisteredRole server("serves-until-killed", [](const RoleArguments& arguments) {
  KivHandle pipe = nullptr;
  if (Create(nullptr, arguments[0], {.maximum = 2}, &pipe) != KIV_ST_OK) return 1u;
  SharedSignal(arguments[1]).Set();
  if (arguments.size() > 2) KivSdNamedPipeConnect(nullptr, &pipe);
  char byte = 0;
  uint32_t count = 0;
  if (arguments.size() > 2) KivSdPipeRead(nullptr, &pipe, &byte, 1, &count);
  KivSdSleep(nullptr, kForEverMs);
  return 2u;
});

TEST(NamedPipeLife, EndsWhenItsProcessIsKilled) {
  const std::string name = UniqueName("killed");
  const SharedSignal isMade(UniqueName("made"));
  const ChildProcess child("serves-until-killed", {name, isMade.name()});
  isMade.Await();
  EXPECT_FALSE(FilesOf(name).empty());
  child.Kill();
  ExpectNoPipe(name);
  // What the process left behind does not disturb the next pipe of this name.
  {
    End again(name, {});
    End client(name);
    EXPECT_TRUE(client.Write("x"));
    EXPECT_EQ(again.Read(9), "x");
  }
  EXPECT_TRUE(FilesOf(name).empty());
}

TEST(NamedPipeLife, GoesOnForTheOtherProcessesWhenOneIsKilled) {
  const std::string name = UniqueName("shared");
  const SharedSignal isMade(UniqueName("made"));
  End own(name, {.maximum = 2});
  const ChildProcess child("serves-until-killed", {name, isMade.name()});
  isMade.Await();
  Context ctx;
  KivHandle third = nullptr;
  CHECK_OUTCOME(ctx, Create(ctx, name, {.maximum = 2}, &third), KIV_ST_PIPE_CREATE_NAMED,
                uint32_t{EBUSY});
  End first(name);
  End second(name);
  KivHandle busy = nullptr;
  CHECK_OUTCOME(ctx, Open(ctx, name, &busy), KIV_ST_PIPE_OPEN, uint32_t{EBUSY});
  child.Kill();
  const End replacement(name, {.maximum = 2});
  const End client(name);
}

TEST(NamedPipeLife, OfAKilledServerBreaksTheClientsConnection) {
  const std::string name = UniqueName("served");
  const SharedSignal isMade(UniqueName("made"));
  const ChildProcess child("serves-until-killed", {name, isMade.name(), "connect"});
  isMade.Await();
  End client(name);
  EXPECT_TRUE(client.Write("x"));
  const Later kill([&] { child.Kill(); });
  EXPECT_EQ(client.Read(1), Failure(KIV_ST_PIPE_READ, EPIPE));
  EXPECT_FALSE(client.Write("x"));
  EXPECT_EQ(client.Outcome(), Failure(KIV_ST_PIPE_WRITE, EPIPE));
}

const RegisteredRole sweeper("makes-its-first-pipe", [](const RoleArguments& arguments) {
  const End pipe(arguments[0], {});
  return kRoleDone;
});

TEST(NamedPipeLife, LeavesGarbageOnlyUntilAProcessMakesItsFirstPipe) {
  const std::string name = UniqueName("garbage");
  {
    const SharedSignal isMade(UniqueName("made"));
    const ChildProcess child("serves-until-killed", {name, isMade.name()});
    isMade.Await();
    child.Kill();
  }
  EXPECT_EQ(FilesOf(name).size(), 2u);
  EXPECT_EQ(ChildProcess("makes-its-first-pipe", {UniqueName("other")}).ExitCode(), kRoleDone);
  EXPECT_TRUE(FilesOf(name).empty());
}

TEST(NamedPipeLife, SharesItsConnectionWithForkedProcesses) {
  const std::string name = UniqueName("forked");
  End pipe(name, {});
  End client(name);
  const pid_t child = fork();
  if (child == 0) _exit(client.Write("from the child") ? 7 : 8);
  EXPECT_EQ(pipe.Read(99), "from the child");
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(NamedPipeLife, NamesHaveAnyBytesAndTheirOwnLength) {
  for (const std::string& name : {std::string("a/../b"), std::string("100%s:1~x"),
                                  std::string("\xC3\xA4\x01\xFF"), std::string(259, 'n')}) {
    const std::string unique = name.size() == 259 ? name : UniqueName(name);
    End pipe(unique, {});
    End client(unique);
    EXPECT_TRUE(client.Write("x"));
    EXPECT_EQ(pipe.Read(1), "x");
  }
  Context ctx;
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(ctx, Create(ctx, std::string(260, 'n'), {}, &pipe), KIV_ST_PIPE_CREATE_NAMED,
                uint32_t{ENAMETOOLONG});
  EXPECT_EQ(pipe, kInvalid);
  CHECK_OUTCOME(ctx, Create(ctx, "", {}, &pipe), KIV_ST_PIPE_CREATE_NAMED, uint32_t{EINVAL});
}

// ---- The name's file, which any process of the user may write ----

// The path of the file that the name has while its pipe exists.
std::string PathOf(const std::string& name) {
  char folder[4096];
  EXPECT_TRUE(kiv::os::NameFolderPath(folder, sizeof folder).ok);
  for (const std::string& file : FilesOf(name)) {
    if (file.find(':') == std::string::npos) return folder + ("/" + file);
  }
  ADD_FAILURE() << "the pipe has no file";
  return "";
}

// Its words: the mark, the access, whether messages, the maximum, the buffer, the time-out.
using Words = std::array<uint32_t, 6>;

Words ReadWords(const std::string& path) {
  Words words = {};
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(words.data()), sizeof words);
  return words;
}

void WriteWords(const std::string& path, const Words& words,
                std::streamsize count = sizeof(Words)) {
  const std::ofstream::openmode mode = std::ios::binary | std::ios::trunc;
  std::ofstream(path, mode).write(reinterpret_cast<const char*>(words.data()), count);
}

// Neither a client nor another server believes the file.
void ExpectRefused(const std::string& name, const Shape& shape, const char* what) {
  SCOPED_TRACE(what);
  Context ctx;
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(ctx, Open(ctx, name, &pipe), KIV_ST_PIPE_OPEN, uint32_t{EIO});
  CHECK_OUTCOME(ctx, Create(ctx, name, shape, &pipe), KIV_ST_PIPE_CREATE_NAMED, uint32_t{EIO});
  EXPECT_EQ(pipe, kInvalid);
}

TEST(NamedPipeFile, IsCheckedBeforeItIsBelieved) {
  struct Damage {
    size_t word;
    uint32_t value;
    const char* what;
  };
  const Damage damages[] = {{0, 0, "no mark"},           {1, 0, "no access"},
                            {1, 4, "unknown access"},    {2, 2, "neither bytes nor messages"},
                            {3, 0, "a maximum of none"}, {3, 256, "too large a maximum"}};
  const std::string name = UniqueName("damaged");
  const Shape shape = {.maximum = 2};
  const End first(name, shape);
  const std::string path = PathOf(name);
  const Words whole = ReadWords(path);
  for (const Damage& damage : damages) {
    Words damaged = whole;
    damaged[damage.word] = damage.value;
    WriteWords(path, damaged);
    ExpectRefused(name, shape, damage.what);
  }
  WriteWords(path, whole, sizeof whole - 1);
  ExpectRefused(name, shape, "a byte is missing");
  WriteWords(path, whole);
  const End second(name, shape);
  const End client(name);
}

TEST(NamedPipeFile, MayNotBeALinkOrAFolder) {
  const std::string name = UniqueName("replaced");
  std::string path;
  {
    const End pipe(name, {});
    path = PathOf(name);
  }
  Context ctx;
  KivHandle pipe = nullptr;
  std::filesystem::create_symlink("/dev/null", path);
  CHECK_OUTCOME(ctx, Create(ctx, name, {}, &pipe), KIV_ST_PIPE_CREATE_NAMED, uint32_t{ELOOP});
  CHECK_OUTCOME(ctx, Open(ctx, name, &pipe), KIV_ST_PIPE_OPEN, uint32_t{ELOOP});
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  CHECK_OUTCOME(ctx, Create(ctx, name, {}, &pipe), KIV_ST_PIPE_CREATE_NAMED, uint32_t{EISDIR});
  CHECK_OUTCOME(ctx, Open(ctx, name, &pipe), KIV_ST_PIPE_OPEN, uint32_t{EISDIR});
  std::filesystem::remove(path);
  const End made(name, {});
}

// ---- Instances ----

TEST(NamedPipeInstances, MustAgreeWithTheFirst) {
  const std::string name = UniqueName("traits");
  const End first(name, {.maximum = 3});
  Context ctx;
  for (const Shape& other :
       {Shape{.openMode = PIPE_ACCESS_INBOUND, .maximum = 3},
        Shape{.pipeMode = PIPE_TYPE_MESSAGE, .maximum = 3}, Shape{.maximum = 2},
        Shape{.openMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE, .maximum = 3}}) {
    KivHandle pipe = nullptr;
    CHECK_OUTCOME(ctx, Create(ctx, name, other, &pipe), KIV_ST_PIPE_CREATE_NAMED, uint32_t{EACCES});
    EXPECT_EQ(pipe, kInvalid);
  }
  const End second(name, {.maximum = 3});
}

TEST(NamedPipeInstances, FirstInstanceFlagTakesAFreeName) {
  const End first(UniqueName("first"),
                  {.openMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE});
}

TEST(NamedPipeInstances, AreUnlimitedAt255) {
  const std::string name = UniqueName("many");
  std::vector<std::unique_ptr<End>> ends;
  for (int i = 0; i < 300; ++i) ends.push_back(std::make_unique<End>(name, Shape{.maximum = 255}));
  for (int i = 0; i < 300; ++i) ends.push_back(std::make_unique<End>(name));
  Context ctx;
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(ctx, Open(ctx, name, &pipe), KIV_ST_PIPE_OPEN, uint32_t{EBUSY});
}

// The places of ended instances are taken again, in any order.
TEST(NamedPipeInstances, AreCountedInAnyOrder) {
  const std::string name = UniqueName("order");
  auto first = std::make_unique<End>(name, Shape{.maximum = 3});
  const End second(name, {.maximum = 3});
  first = nullptr;
  const End third(name, {.maximum = 3});
  const End fourth(name, {.maximum = 3});
  Context ctx;
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(ctx, Create(ctx, name, {.maximum = 3}, &pipe), KIV_ST_PIPE_CREATE_NAMED,
                uint32_t{EBUSY});
  const End clients[3] = {End(name), End(name), End(name)};
}

// Every client gets an instance of its own, and every byte arrives at the right place.
TEST(NamedPipeInstances, ServeOneClientEachWhenManyComeAtOnce) {
  constexpr int kInstances = 4;
  constexpr int kClients = 12;
  constexpr int kRounds = 10;
  const std::string name = UniqueName("crowd");
  std::vector<std::thread> threads;
  std::atomic<int> served{0};
  for (int i = 0; i < kInstances; ++i) {
    threads.emplace_back([&] {
      End pipe(name, {.maximum = kInstances});
      while (served < kClients * kRounds) {
        KivSdContext ctx = {};
        const uint32_t status = KivSdNamedPipeConnect(&ctx, pipe.pipe());
        const std::string line = pipe.Read(64);
        if (line == "end") break;
        EXPECT_TRUE(pipe.Write(line)) << status << ", " << ctx.osError;
        EXPECT_EQ(pipe.Read(1), Failure(KIV_ST_PIPE_READ, EPIPE)) << "until the client leaves";
        ++served;
        EXPECT_EQ(KivSdNamedPipeDisconnect(nullptr, pipe.pipe()), KIV_ST_OK);
      }
    });
  }
  std::vector<std::thread> clients;
  for (int i = 0; i < kClients; ++i) {
    clients.emplace_back([&, i] {
      for (int round = 0; round < kRounds; ++round) {
        KivHandle pipe = nullptr;
        const Stopwatch watch;
        while (Open(nullptr, name, &pipe) != KIV_ST_OK && watch.ElapsedMs() < kLimitMs) {
          static_cast<void>(KivSdNamedPipeWait(nullptr, "local", name.c_str(), 100));
        }
        const std::string line = std::to_string(i) + ":" + std::to_string(round);
        uint32_t count = 0;
        char answer[64] = "";
        EXPECT_EQ(
            KivSdPipeWrite(nullptr, &pipe, line.data(), static_cast<uint32_t>(line.size()), &count),
            KIV_ST_OK);
        EXPECT_EQ(KivSdPipeRead(nullptr, &pipe, answer, sizeof answer, &count), KIV_ST_OK);
        EXPECT_EQ(std::string(answer, count), line);
        EXPECT_EQ(KivSdPipeClose(nullptr, &pipe), KIV_ST_OK);
      }
    });
  }
  for (std::thread& client : clients) client.join();
  std::vector<std::unique_ptr<End>> last;
  for (int i = 0; i < kInstances; ++i) {
    KivHandle pipe = nullptr;
    if (KivSdNamedPipeWait(nullptr, "local", name.c_str(), 1000) != KIV_ST_OK) continue;
    if (Open(nullptr, name, &pipe) != KIV_ST_OK) continue;
    uint32_t count = 0;
    static_cast<void>(KivSdPipeWrite(nullptr, &pipe, "end", 3, &count));
    EXPECT_EQ(KivSdPipeClose(nullptr, &pipe), KIV_ST_OK);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(served, kClients * kRounds);
}

// ---- Waiting and connecting ----

TEST(NamedPipeWait, EndsWhenAnInstanceIsFree) {
  const std::string name = UniqueName("wait");
  End pipe(name, {});
  auto first = std::make_unique<End>(name);
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, pipe.pipe()), KIV_ST_OK, 535u);
  std::thread again([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
    EXPECT_EQ(KivSdNamedPipeDisconnect(nullptr, pipe.pipe()), KIV_ST_OK);
    static_cast<void>(KivSdNamedPipeConnect(nullptr, pipe.pipe()));
  });
  const Stopwatch watch;
  CHECK_OK(ctx, KivSdNamedPipeWait(ctx, "LOCAL", name.c_str(), kForEverMs));
  EXPECT_GE(watch.ElapsedMs(), kiv::test::kShortAtLeastMs);
  const End second(name);
  again.join();
}

TEST(NamedPipeWait, TakesThePipesDefaultTimeOut) {
  const std::string name = UniqueName("default");
  const End pipe(name, {.defaultTimeoutMs = 200});
  const End client(name);
  Context ctx;
  Stopwatch watch;
  CHECK_OUTCOME(ctx, KivSdNamedPipeWait(ctx, "local", name.c_str(), 0), KIV_ST_PIPE_WAIT,
                uint32_t{ETIMEDOUT});
  EXPECT_GE(watch.ElapsedMs(), 190);
}

TEST(NamedPipeWait, EndsWithTheLastInstance) {
  const std::string name = UniqueName("gone");
  auto pipe = std::make_unique<End>(name, Shape{});
  const End client(name);
  const Later close([&] { pipe.reset(); });
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdNamedPipeWait(ctx, "local", name.c_str(), kForEverMs), KIV_ST_PIPE_WAIT,
                uint32_t{ENOENT});
}

TEST(NamedPipeServer, OfAnotherMachineIsRefused) {
  Context ctx;
  KivHandle pipe = nullptr;
  for (const char* machine : {"machine", "localhost", "127.0.0.1", "localx", ""}) {
    CHECK_OUTCOME(ctx,
                  KivSdNamedPipeOpen(ctx, machine, "n", &pipe, kReadWrite, 0, OPEN_EXISTING, 0),
                  KIV_ST_PIPE_OPEN, uint32_t{EHOSTUNREACH});
    EXPECT_EQ(pipe, kInvalid);
    CHECK_OUTCOME(ctx, KivSdNamedPipeWait(ctx, machine, "n", 1), KIV_ST_PIPE_WAIT,
                  uint32_t{EHOSTUNREACH});
  }
}

TEST(NamedPipeConnect, IsForServersOnly) {
  const std::string name = UniqueName("client");
  const End pipe(name, {});
  End client(name);
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, client.pipe()), KIV_ST_PIPE_CONNECT,
                uint32_t{EINVAL});
  CHECK_OUTCOME(ctx, KivSdNamedPipeDisconnect(ctx, client.pipe()), KIV_ST_PIPE_DISCONNECT,
                uint32_t{EINVAL});
}

TEST(NamedPipeDisconnect, EndsTheTransfersOfOtherThreads) {
  const std::string name = UniqueName("cut");
  End pipe(name, {});
  End client(name);
  const Later cut([&] { EXPECT_EQ(KivSdNamedPipeDisconnect(nullptr, pipe.pipe()), KIV_ST_OK); });
  EXPECT_EQ(pipe.Read(1), Failure(KIV_ST_PIPE_READ, EPIPE));
}

TEST(NamedPipeDisconnect, NeedsAConnection) {
  const std::string name = UniqueName("alone");
  End pipe(name, {});
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdNamedPipeDisconnect(ctx, pipe.pipe()), KIV_ST_PIPE_DISCONNECT,
                uint32_t{ENOTCONN});
  EXPECT_EQ(pipe.Read(1), Failure(KIV_ST_PIPE_READ, ENOTCONN));
  EXPECT_FALSE(pipe.Write("x"));
  EXPECT_EQ(pipe.Outcome(), Failure(KIV_ST_PIPE_WRITE, ENOTCONN));
  CHECK_OUTCOME(ctx, KivSdNamedPipePeek(ctx, pipe.pipe(), 0, nullptr, nullptr, nullptr, nullptr),
                KIV_ST_PIPE_PEEK, uint32_t{ENOTCONN});
  { const End client(name); }
  CHECK_OK(ctx, KivSdNamedPipeDisconnect(ctx, pipe.pipe()));
  KivHandle busy = nullptr;
  CHECK_OUTCOME(ctx, Open(ctx, name, &busy), KIV_ST_PIPE_OPEN, uint32_t{EBUSY});
}

TEST(NamedPipePeek, WithoutABufferOnlyCounts) {
  for (const uint32_t mode : {uint32_t{PIPE_TYPE_BYTE}, kMessages}) {
    const std::string name = UniqueName("counted");
    End pipe(name, {.pipeMode = mode});
    End client(name);
    ASSERT_TRUE(client.Write("12345"));
    for (const uint32_t size : {0u, 3u, 64u}) {
      Context ctx;
      uint32_t read = 4711;
      uint32_t available = 0;
      CHECK_OK(ctx,
               KivSdNamedPipePeek(ctx, pipe.pipe(), size, nullptr, &read, &available, nullptr));
      EXPECT_EQ(read, 0u);
      EXPECT_EQ(available, 5u);
    }
    EXPECT_EQ(pipe.Read(5), "12345");
  }
}

TEST(NamedPipeClose, LeavesTheOtherEndWhatWasWritten) {
  const std::string name = UniqueName("unread");
  for (const uint32_t mode : {uint32_t{PIPE_TYPE_BYTE}, kMessages}) {
    for (const bool serverCloses : {true, false}) {
      SCOPED_TRACE(mode);
      End pipe(name, {.pipeMode = mode});
      End client(name);
      End& writer = serverCloses ? pipe : client;
      End& reader = serverCloses ? client : pipe;
      EXPECT_TRUE(reader.Write("never read"));
      EXPECT_TRUE(writer.Write("last words"));
      writer.Close();
      EXPECT_EQ(reader.Read(99), "last words");
      EXPECT_EQ(reader.Read(99), Failure(KIV_ST_PIPE_READ, EPIPE));
    }
  }
}

// ---- Directions ----

TEST(NamedPipeDirection, InboundGoesFromClientToServer) {
  const std::string name = UniqueName("in");
  End pipe(name, {.openMode = PIPE_ACCESS_INBOUND});
  Context ctx;
  KivHandle refused = nullptr;
  CHECK_OUTCOME(ctx, Open(ctx, name, &refused, GENERIC_READ), KIV_ST_PIPE_OPEN, uint32_t{EACCES});
  CHECK_OUTCOME(ctx, Open(ctx, name, &refused, kReadWrite), KIV_ST_PIPE_OPEN, uint32_t{EACCES});
  End client;
  CHECK_OK(ctx, Open(ctx, name, client.pipe(), GENERIC_WRITE));
  EXPECT_TRUE(client.Write("x"));
  EXPECT_EQ(pipe.Read(1), "x");
  EXPECT_FALSE(pipe.Write("x"));
  EXPECT_EQ(pipe.Outcome(), Failure(KIV_ST_PIPE_WRITE, EACCES));
  EXPECT_EQ(client.Read(1), Failure(KIV_ST_PIPE_READ, EACCES));
}

TEST(NamedPipeDirection, OutboundGoesFromServerToClient) {
  const std::string name = UniqueName("out");
  End pipe(name, {.openMode = PIPE_ACCESS_OUTBOUND});
  Context ctx;
  KivHandle refused = nullptr;
  CHECK_OUTCOME(ctx, Open(ctx, name, &refused, GENERIC_WRITE), KIV_ST_PIPE_OPEN, uint32_t{EACCES});
  End client;
  CHECK_OK(ctx, Open(ctx, name, client.pipe(), GENERIC_READ));
  EXPECT_TRUE(pipe.Write("x"));
  EXPECT_EQ(client.Read(1), "x");
  EXPECT_EQ(pipe.Read(1), Failure(KIV_ST_PIPE_READ, EACCES));
}

// ---- Messages ----

TEST(NamedPipeMessage, KeepsItsBoundaries) {
  const std::string name = UniqueName("messages");
  End pipe(name, {.pipeMode = kMessages});
  End client(name);
  for (const char* message : {"one", "", "three"}) EXPECT_TRUE(client.Write(message));
  EXPECT_EQ(pipe.Read(99), "one");
  EXPECT_EQ(pipe.Read(99), "") << "an empty message is no end";
  EXPECT_EQ(pipe.Read(99), "three");
  EXPECT_TRUE(client.Write(""));
  client.Close();
  EXPECT_EQ(pipe.Read(99), "");
  EXPECT_EQ(pipe.Read(99), Failure(KIV_ST_PIPE_READ, EPIPE));
}

TEST(NamedPipeMessage, IsReadInPartsWhichAPeekSees) {
  const std::string name = UniqueName("parts");
  End pipe(name, {.pipeMode = kMessages});
  End client(name);
  EXPECT_TRUE(client.Write("abcdefg"));
  EXPECT_TRUE(client.Write("xyz"));
  EXPECT_EQ(pipe.Read(3), Failure(KIV_ST_PIPE_READ, EMSGSIZE));
  EXPECT_EQ(pipe.lastCount(), 3u);
  char seen[2] = {};
  uint32_t read = 0;
  uint32_t available = 0;
  uint32_t left = 0;
  Context ctx;
  CHECK_OK(ctx, KivSdNamedPipePeek(ctx, pipe.pipe(), 2, seen, &read, &available, &left));
  EXPECT_EQ(std::string(seen, 2), "de");
  EXPECT_EQ(read, 2u);
  EXPECT_EQ(available, 7u);
  EXPECT_EQ(left, 2u);
  EXPECT_EQ(pipe.Read(3), Failure(KIV_ST_PIPE_READ, EMSGSIZE));
  EXPECT_EQ(pipe.Read(3), "g");
  EXPECT_EQ(pipe.Read(3), "xyz");
}

// Clients read messages as bytes, as on Windows.
TEST(NamedPipeMessage, IsReadByAClientAsBytes) {
  const std::string name = UniqueName("bytes");
  End pipe(name, {.pipeMode = kMessages});
  End client(name);
  EXPECT_TRUE(pipe.Write("abc"));
  EXPECT_TRUE(pipe.Write(""));
  EXPECT_TRUE(pipe.Write("defg"));
  EXPECT_EQ(client.Read(2), "ab");
  EXPECT_EQ(client.Read(3), "cde");
  EXPECT_EQ(client.Read(99), "fg");
}

TEST(NamedPipeMessage, MayBeLongerThanTheBuffers) {
  const std::string name = UniqueName("long");
  End pipe(name, {.pipeMode = kMessages});
  End client(name);
  const std::string message(150'000, 'm');
  EXPECT_TRUE(client.Write(message));
  EXPECT_EQ(pipe.Read(200'000), message);
  EXPECT_FALSE(client.Write(std::string(64 << 20, 'm')));
  EXPECT_EQ(client.Outcome(), Failure(KIV_ST_PIPE_WRITE, EMSGSIZE));
}

// ---- No-wait mode ----

TEST(NamedPipeNoWait, ReturnsAtOnce) {
  const std::string name = UniqueName("nowait");
  End pipe(name, {.pipeMode = PIPE_NOWAIT});
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, pipe.pipe()), KIV_ST_PIPE_CONNECT,
                uint32_t{EAGAIN});
  End client(name);
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, pipe.pipe()), KIV_ST_OK, 535u);
  EXPECT_EQ(pipe.Read(1), Failure(KIV_ST_PIPE_CLOSED, ENODATA));
  EXPECT_EQ(pipe.lastCount(), 0u);
  EXPECT_FALSE(pipe.Write(std::string(4 << 20, 'x'))) << "the rest does not fit";
  EXPECT_EQ(pipe.Outcome(), Failure(KIV_ST_OK, 0));
  EXPECT_GT(pipe.lastCount(), 0u);
}

TEST(NamedPipeNoWait, ReadsMessagesThatAreThere) {
  const std::string name = UniqueName("nowait-messages");
  End pipe(name, {.pipeMode = kMessages | PIPE_NOWAIT});
  End client(name);
  EXPECT_EQ(pipe.Read(9), Failure(KIV_ST_PIPE_CLOSED, ENODATA));
  EXPECT_TRUE(client.Write("m"));
  EXPECT_EQ(pipe.Read(9), "m");
}

// ---- Flags ----

TEST(NamedPipeFlags, WithoutMeaningAreRefused) {
  const std::string name = UniqueName("flags");
  Context ctx;
  KivHandle pipe = nullptr;
  for (const Shape& shape :
       {Shape{.openMode = 0}, Shape{.openMode = 4 | PIPE_ACCESS_DUPLEX},
        Shape{.openMode = 0x01000000 | PIPE_ACCESS_DUPLEX}, Shape{.pipeMode = 0x10},
        Shape{.pipeMode = PIPE_READMODE_MESSAGE}, Shape{.maximum = 0}, Shape{.maximum = 256}}) {
    CHECK_OUTCOME(ctx, Create(ctx, name, shape, &pipe), KIV_ST_PIPE_CREATE_NAMED, uint32_t{EINVAL});
    EXPECT_EQ(pipe, kInvalid);
  }
  const End made(name, {});
  const struct {
    uint32_t access;
    uint32_t share;
    uint32_t disposition;
    uint32_t flags;
  } refused[] = {{kReadWrite | 8, 0, 3, 0}, {kReadWrite, 8, 3, 0}, {kReadWrite, 0, 1, 0},
                 {kReadWrite, 0, 5, 0},     {kReadWrite, 0, 3, 1}, {kReadWrite, 0, 3, 0x20000000}};
  for (const auto& [access, share, disposition, flags] : refused) {
    CHECK_OUTCOME(
        ctx,
        KivSdNamedPipeOpen(ctx, "local", name.c_str(), &pipe, access, share, disposition, flags),
        KIV_ST_PIPE_OPEN, uint32_t{EINVAL});
  }
  constexpr uint32_t kIdentification = 0x00110000;
  CHECK_OK(ctx, KivSdNamedPipeOpen(ctx, "local", name.c_str(), &pipe, kReadWrite, 7, 3,
                                   kIdentification | 0x40000080));
  EXPECT_EQ(KivSdPipeClose(nullptr, &pipe), KIV_ST_OK);
}

}  // namespace
