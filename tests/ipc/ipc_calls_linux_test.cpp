// Pipes, named pipes and shared memory blocks on Linux: rare answers of the system's calls, and what
// another thread does between two steps of an operation.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "os/lnx/name_folder.h"
#include "os/lnx/pipe_names.h"
#include "os/named_pipes.h"
#include "os/pipes.h"
#include "os/shared_memory.h"
#include "support/lnx/answered_calls.h"
#include "support/lnx/os_results.h"
#include "support/lnx/own_names.h"
#include "support/open_handles.h"

namespace {

using namespace kiv::os;
using namespace kiv::test;

constexpr uint32_t kDuplex = 3;
constexpr uint32_t kNoWait = 1;
constexpr uint32_t kReadMessages = 2;
constexpr uint32_t kMessages = 4;
constexpr uint32_t kReadWrite = 0xC0000000;
constexpr uint32_t kOpenExisting = 3;
constexpr uint32_t kOpenAlways = 4;
constexpr uint32_t kUsualTimeoutMs = 50;

const std::string kName = "ipc-calls-" + std::to_string(getpid());
const std::string kPath = "\\\\.\\PIPE\\" + kName;

std::string NameFolder() {
  char path[256];
  EXPECT_TRUE(NameFolderPath(path, sizeof path).ok);
  return std::string(path) + "/";
}

// The file of the test's pipe in the folder of the names.
std::string PipeFile() { return NameFolder() + "p-" + kName; }

ValueResult<void*> MakeServer(uint32_t pipeMode = 0, uint32_t bytes = 4096,
                              uint32_t defaultTimeoutMs = kUsualTimeoutMs) {
  return MakeNamedPipe(kPath.c_str(), {kDuplex, pipeMode, 1, bytes, bytes, defaultTimeoutMs},
                       nullptr);
}

ValueResult<void*> OpenClient(uint32_t disposition = kOpenExisting) {
  return OpenPipeFile(kPath.c_str(), kReadWrite, 0, disposition, 0);
}

void ExpectCount(const ValueResult<uint32_t>& result, uint32_t count) {
  EXPECT_TRUE(result.ok) << "error " << result.error;
  EXPECT_EQ(result.value, count);
}

void ExpectContent(const ValueResult<PipeContent>& result, uint32_t read, uint32_t available) {
  EXPECT_TRUE(result.ok) << "error " << result.error;
  EXPECT_EQ(result.value.read, read);
  EXPECT_EQ(result.value.available, available);
}

// ---- What the first pipe of a process does ----

// Runs in a new process, which has not used the library yet. The result is its exit code.
template <typename Body>
int RunInChild(Body body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int MakeAndClosePipe() {
  const ValueResult<void*> server = MakeServer();
  return server.ok && ClosePipe(server.value).ok ? 0 : 1;
}

int DescriptorsLeftOpen() {
  const size_t before = OpenHandles();
  MakeAndClosePipe();
  return static_cast<int>(OpenHandles() - before);
}

// Entries that the first pipe of a process finds in the folder, and whether they are garbage.
struct Entry {
  const char* name;
  bool isGarbage;
};
const Entry kEntries[] = {
    {"p-ipc-unused", true},     // a file without instances
    {"p-ipc-unknown:5", true},  // a socket whose pipe has no file
    {"pipe", false},            // not of a pipe
    {"p-ipc-folder", false},    // cannot be opened as a file
};

struct FirstPipe {
  int withoutFolder = -1;
  int withoutStream = -1;
  int opened = -1;  // descriptors that stay open
  int openedWithoutStream = -1;
  bool keptUnused = false;
};
FirstPipe first;

class FirstPipes : public testing::Environment {
 public:
  void SetUp() override {
    names_.emplace();
    EXPECT_EQ(RunInChild(MakeAndClosePipe), 0) << "makes the folder";
    first.opened = RunInChild(DescriptorsLeftOpen);
    for (const Entry& entry : kEntries) std::ofstream(NameFolder() + entry.name).close();
    std::filesystem::remove(NameFolder() + "p-ipc-folder");
    std::filesystem::create_directory(NameFolder() + "p-ipc-folder");
    first.withoutFolder = RunInChild([] {
      const AnsweredCall refused("openat", Refuse(EMFILE, 0, 1));
      return MakeAndClosePipe();
    });
    first.withoutStream = RunInChild([] {
      const AnsweredCall refused("fdopendir", Refuse(ENOMEM));
      return MakeAndClosePipe();
    });
    first.openedWithoutStream = RunInChild([] {
      const AnsweredCall refused("fdopendir", Refuse(ENOMEM));
      return DescriptorsLeftOpen();
    });
    first.keptUnused = std::filesystem::exists(NameFolder() + "p-ipc-unused");
    EXPECT_EQ(MakeAndClosePipe(), 0);
    ExpectOk(CloseBlock(
        MakeBlock(kName.c_str(), 1, kPagesReadWrite).value));  // opens the file of holders
  }
  void TearDown() override { names_.reset(); }

 private:
  std::optional<OwnNames> names_;
};
const testing::Environment* const kFirstPipes = testing::AddGlobalTestEnvironment(new FirstPipes);

class IpcCalls : public testing::Test {
 protected:
  IpcCalls() : before_(OpenHandles()) {}
  ~IpcCalls() override {
    EXPECT_EQ(OpenHandles(), before_) << "handles were left open";
    EXPECT_FALSE(std::filesystem::exists(PipeFile())) << "the pipe's file was left behind";
  }

  size_t before_;
};

TEST_F(IpcCalls, TheFirstPipeOfAProcessRemovesWhatEndedProcessesLeftAndNothingElse) {
  for (const Entry& entry : kEntries) {
    EXPECT_EQ(std::filesystem::exists(NameFolder() + entry.name), !entry.isGarbage) << entry.name;
  }
}

TEST_F(IpcCalls, TheFirstPipeIsMadeAlsoIfTheFolderCannotBeSearched) {
  EXPECT_EQ(first.withoutFolder, 0);
  EXPECT_EQ(first.withoutStream, 0);
  EXPECT_EQ(first.openedWithoutStream, first.opened);
  EXPECT_TRUE(first.keptUnused);
}

// ---- Anonymous pipes ----

class AnonymousPipe : public IpcCalls {
 protected:
  AnonymousPipe() : ends_(MakePipe(0).value) {}
  ~AnonymousPipe() override {
    ExpectOk(ClosePipe(ends_.read));
    CloseWriter();
  }

  void CloseWriter() {
    if (ends_.write != nullptr) ExpectOk(ClosePipe(ends_.write));
    ends_.write = nullptr;
  }
  void Write(uint32_t length) { ExpectCount(WritePipe(ends_.write, bytes_, length), length); }
  ValueResult<PipeContent> Peek(uint32_t length) { return PeekPipe(ends_.read, bytes_, length); }

  PipeEnds ends_;
  char bytes_[16] = {};
};

TEST_F(IpcCalls, APipeWithoutHandlesForBothItsEndsIsNotMade) {
  for (const uint32_t made : {0u, 1u}) {
    const AnsweredCall full("TakeSlot", Refuse(ENOMEM, made));
    const ValueResult<PipeEnds> pipe = MakePipe(0);
    ExpectFailed(pipe, ENOMEM);
    EXPECT_EQ(pipe.value.read, nullptr);
    EXPECT_EQ(pipe.value.write, nullptr);
    EXPECT_EQ(OpenHandles(), before_);
  }
}

TEST_F(AnonymousPipe, AReadOfNothingIsNoEnd) { ExpectCount(ReadPipe(ends_.read, bytes_, 0), 0); }

TEST_F(AnonymousPipe, APeekReportsWhyThePipeCannotBeAsked) {
  const AnsweredCall refused("ioctl", Refuse(EIO));
  ExpectFailed(Peek(1), EIO);
}

TEST_F(AnonymousPipe, APeekWithoutRoomCountsTheBytes) {
  Write(3);
  ExpectContent(Peek(0), 0, 3);
  ExpectContent(PeekPipe(ends_.read, nullptr, 5), 0, 3);
}

TEST_F(AnonymousPipe, APeekReportsWhyBytesCannotBeShared) {
  Write(3);
  {
    const AnsweredCall refused("pipe2", Refuse(EMFILE));
    ExpectFailed(Peek(3), EMFILE);
  }
  {
    const AnsweredCall refused("tee", Refuse(ENOMEM));
    ExpectFailed(Peek(3), ENOMEM);
  }
  {
    const AnsweredCall refused("read", Refuse(EIO));
    ExpectFailed(Peek(3), EIO);
  }
  ExpectContent(Peek(3), 3, 3);
}

// Another thread reads the bytes between the two looks.
TEST_F(AnonymousPipe, APeekOfBytesThatAreGoneReadsNone) {
  Write(3);
  const AnsweredCall gone("tee", Precede([&] { ExpectCount(ReadPipe(ends_.read, bytes_, 3), 3); }));
  ExpectContent(Peek(3), 0, 3);
}

// Another thread writes between the look at the bytes and the look for the end.
TEST_F(AnonymousPipe, APeekThatBytesFollowSeesAnEmptyPipeAndNoEnd) {
  const AnsweredCall late("ppoll", Precede([&] { Write(2); }));
  ExpectContent(Peek(2), 0, 0);
}

TEST_F(AnonymousPipe, APeekThatTheLastBytesFollowSeesThem) {
  {
    const AnsweredCall late("ppoll", Precede([&] {
                              Write(2);
                              CloseWriter();
                            }));
    ExpectContent(Peek(2), 2, 2);
  }
  ExpectCount(ReadPipe(ends_.read, bytes_, 2), 2);
  ExpectFailed(Peek(2), EPIPE);
}

// The kernel looks for bytes first and for the writer afterwards, which may write and close in
// between.
TEST_F(AnonymousPipe, APeekSeesTheLastBytesAlsoIfTheKernelReportsOnlyTheEnd) {
  const AnsweredCall late("ppoll", [&](const Words& arguments, Word* word) {
    Write(2);
    CloseWriter();
    reinterpret_cast<pollfd*>(arguments[0])->revents = POLLHUP;
    *word = 1;
    return Answer::kGive;
  });
  ExpectContent(Peek(2), 2, 2);
}

TEST_F(AnonymousPipe, APeekThatFailsAfterTheEndSaysWhy) {
  CloseWriter();
  const AnsweredCall refused("ioctl", Refuse(EIO, 1, 1));
  ExpectFailed(Peek(2), EIO);
}

// ---- Named pipes ----

// A server and a client, connected.
class NamedPipe : public IpcCalls {
 protected:
  void Connect(uint32_t pipeMode, uint32_t bytes = 4096) {
    server_ = MakeServer(pipeMode, bytes);
    ASSERT_TRUE(server_.ok) << server_.error;
    client_ = OpenClient();
    ASSERT_TRUE(client_.ok) << client_.error;
    ExpectContent(PeekPipe(server_.value, nullptr, 0), 0, 0);  // the server takes the client
  }
  ~NamedPipe() override {
    if (client_.ok) ExpectOk(ClosePipe(client_.value));
    if (server_.ok) ExpectOk(ClosePipe(server_.value));
  }

  void Send(const char* text) {
    const auto length = static_cast<uint32_t>(std::strlen(text));
    ExpectCount(WritePipe(client_.value, text, length), length);
  }
  ValueResult<uint32_t> Read(uint32_t length) { return ReadPipe(server_.value, bytes_, length); }
  ValueResult<PipeContent> Peek(uint32_t length) { return PeekPipe(server_.value, bytes_, length); }

  ValueResult<void*> server_ = {};
  ValueResult<void*> client_ = {};
  char bytes_[16] = {};
};

TEST_F(IpcCalls, ANamedPipeWithoutAHandleIsNotMade) {
  const AnsweredCall full("TakeSlot", Refuse(ENOMEM));
  ExpectFailed(MakeServer(), ENOMEM);
}

TEST_F(NamedPipe, AClientWithoutAHandleLeavesNothingOpen) {
  server_ = MakeServer();
  const size_t before = OpenHandles();
  const AnsweredCall full("TakeSlot", Refuse(ENOMEM));
  ExpectFailed(OpenClient(), ENOMEM);
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(NamedPipe, AServerThatConnectsLateIsToldWhatItsClientDid) {
  server_ = MakeServer();
  client_ = OpenClient();
  ExpectFailed(ConnectPipe(server_.value), kErrorPipeConnected);
  ExpectOk(ClosePipe(client_.value));
  client_ = {};
  ExpectFailed(ConnectPipe(server_.value), kErrorPipeClosing);
}

TEST_F(NamedPipe, AClientMayAskToOpenAlways) {
  server_ = MakeServer();
  client_ = OpenClient(kOpenAlways);
  EXPECT_TRUE(client_.ok);
}

TEST_F(NamedPipe, TheDefaultTimeoutOf0IsTheUsualOne) {
  Connect(0);
  ExpectOk(ClosePipe(client_.value));
  ExpectOk(ClosePipe(server_.value));
  client_ = {};
  server_ = MakeServer(0, 4096, 0);
  client_ = OpenClient();
  ASSERT_TRUE(client_.ok);
  const auto started = std::chrono::steady_clock::now();
  ExpectFailed(WaitForNamedPipe(kPath.c_str(), 0), ETIMEDOUT);
  const auto took = std::chrono::steady_clock::now() - started;
  EXPECT_GE(took, std::chrono::milliseconds(kUsualTimeoutMs));
}

TEST_F(NamedPipe, AnInstanceThatAnotherClientTakesFirstIsBusy) {
  server_ = MakeServer();
  for (const int error : {EAGAIN, ENOENT, ECONNREFUSED}) {
    const AnsweredCall refused("connect", Refuse(error));
    ExpectFailed(OpenClient(), EBUSY);
  }
  const AnsweredCall refused("connect", Refuse(EPROTO));
  ExpectFailed(OpenClient(), EPROTO);
}

TEST_F(NamedPipe, NeitherAServerNorAClientCanDoWithoutASocket) {
  {
    const AnsweredCall full("socket", Refuse(EMFILE));
    ExpectFailed(MakeServer(), EMFILE);
  }
  server_ = MakeServer();
  {
    const AnsweredCall full("socket", Refuse(EMFILE));
    ExpectFailed(OpenClient(), EMFILE);
  }
  client_ = OpenClient();
  EXPECT_TRUE(client_.ok) << "the instance is still free";
}

TEST_F(NamedPipe, InterruptedCallsAreRepeated) {
  server_ = MakeServer();
  client_ = OpenClient();
  {
    const AnsweredCall interrupted("accept4", Refuse(EINTR, 0, 1));
    ExpectContent(Peek(0), 0, 0);
    EXPECT_EQ(interrupted.answered(), 1u);
  }
  {
    const AnsweredCall interrupted("send", Refuse(EINTR, 0, 1));
    Send("ab");
    EXPECT_EQ(interrupted.answered(), 1u);
  }
  const AnsweredCall interrupted("recv", Refuse(EINTR, 0, 1));
  ExpectCount(Read(2), 2);
  EXPECT_EQ(interrupted.answered(), 1u);
}

TEST_F(NamedPipe, AWriteAcceptsALargeBuffer) {
  Connect(0, 1 << 22);
  Send("large");
  ExpectCount(Read(5), 5);
}

// ---- Clients of other users ----

// What the server's kernel says of the client.
Answering PeerIs(uid_t user) {
  return [=](const Words& arguments, Word* word) {
    if (arguments[2] != SO_PEERCRED) return Answer::kPass;
    ucred peer = {};
    peer.uid = user;
    std::memcpy(reinterpret_cast<void*>(arguments[3]), &peer, sizeof peer);
    *word = 0;
    return Answer::kGive;
  };
}

constexpr uid_t kStranger = 54321;

TEST_F(NamedPipe, AClientOfAnotherUserIsNotTaken) {
  server_ = MakeServer(kNoWait);
  client_ = OpenClient();
  {
    const AnsweredCall stranger("getsockopt", PeerIs(kStranger));
    ExpectFailed(Peek(0), ENOTCONN);
  }
  char byte = 0;
  ExpectFailed(ReadPipe(client_.value, &byte, 1), EPIPE);
}

TEST_F(NamedPipe, AClientOfAnUnknownUserIsNotTaken) {
  server_ = MakeServer(kNoWait);
  client_ = OpenClient();
  const AnsweredCall unknown("getsockopt", Refuse(ENOPROTOOPT, 0, 1));
  ExpectFailed(ConnectPipe(server_.value), EAGAIN);
}

TEST_F(NamedPipe, AClientOfTheSuperuserIsTaken) {
  server_ = MakeServer(kNoWait);
  client_ = OpenClient();
  const AnsweredCall superuser("getsockopt", PeerIs(0));
  const AnsweredCall other("geteuid", Give(kStranger, 0, 1));  // the server is another user
  ExpectContent(Peek(0), 0, 0);
  EXPECT_EQ(other.answered(), 1u);
}

// ---- Listening again ----

TEST_F(NamedPipe, AServerThatCannotListenAgainSaysWhy) {
  Connect(kNoWait);
  ExpectOk(DisconnectPipe(server_.value));
  {
    const AnsweredCall refused("mkdir", Refuse(EIO));
    ExpectFailed(ConnectPipe(server_.value), EIO);
  }
  {
    const AnsweredCall refused("socket", Refuse(EMFILE));
    ExpectFailed(ConnectPipe(server_.value), EMFILE);
  }
  ExpectFailed(ConnectPipe(server_.value), EAGAIN);
}

// The client removes the socket's file itself.
TEST_F(NamedPipe, AClientIsTakenAlsoIfTheFolderCannotBeOpened) {
  server_ = MakeServer();
  client_ = OpenClient();
  const AnsweredCall refused("mkdir", Refuse(EIO));
  ExpectContent(Peek(0), 0, 0);
  EXPECT_EQ(refused.answered(), 1u);
}

TEST_F(NamedPipe, AnErrorOfAConnectionIsNoEnd) {
  Connect(0);
  const AnsweredCall failed("ppoll", [](const Words& arguments, Word* word) {
    reinterpret_cast<pollfd*>(arguments[0])->revents = POLLERR;
    *word = 1;
    return Answer::kGive;
  });
  ExpectContent(Peek(1), 0, 0);
}

// The client sends its last bytes and leaves between the look at the bytes and the look for the end.
TEST_F(NamedPipe, APeekThatTheLastBytesFollowSeesThem) {
  Connect(0);
  {
    const AnsweredCall late("ppoll", Precede([&] {
                              Send("bye");
                              ExpectOk(ClosePipe(client_.value));
                              client_ = {};
                            }));
    ExpectContent(Peek(2), 2, 3);
  }
  ExpectCount(Read(3), 3);
  ExpectFailed(Peek(2), EPIPE);
}

TEST_F(NamedPipe, APeekThatFailsAfterTheEndSaysWhy) {
  Connect(0);
  ExpectOk(ClosePipe(client_.value));
  client_ = {};
  const AnsweredCall refused("ioctl", Refuse(EIO, 1, 1));
  ExpectFailed(Peek(2), EIO);
}

// The client sends a message just before the server looks for one, and another just after.
TEST_F(NamedPipe, APeekCountsTheBytesOfTheMessageThatItSees) {
  Connect(kMessages | kReadMessages);
  const AnsweredCall before("recvmsg", Precede([&] { Send("first"); }));
  const AnsweredCall after("ioctl", Precede([&] { Send("second"); }));
  ExpectContent(Peek(2), 2, 11);
}

// The kernel looks for a message first and for the end afterwards. The client sends its last message
// and leaves in between: the kernel reports the end once, before the message.
TEST_F(NamedPipe, AnEndThatIsReportedBeforeTheLastMessageIsNotBelieved) {
  for (const bool looks : {false, true}) {
    Connect(kMessages | kReadMessages);
    bool isFirst = true;
    const AnsweredCall early("recvmsg", [&](const Words& arguments, Word* word) {
      if (!std::exchange(isFirst, false)) return Answer::kPass;
      Send("last");
      ExpectOk(ClosePipe(client_.value));
      client_ = {};
      reinterpret_cast<msghdr*>(arguments[1])->msg_controllen = 0;
      *word = 0;
      return Answer::kGive;
    });
    if (looks) ExpectContent(Peek(4), 4, 4);
    ExpectCount(Read(4), 4);
    ExpectFailed(Peek(4), EPIPE);
    ExpectFailed(Read(4), EPIPE);
    ExpectOk(ClosePipe(server_.value));
    server_ = {};
  }
}

// A child that was forked during a step has a copy of the folder's descriptor.
TEST_F(NamedPipe, AChildForkedDuringAStepDoesNotKeepTheFolderLocked) {
  pid_t child = -1;
  {
    const AnsweredCall during("renameat", Precede([&] {
                                child = fork();
                                while (child == 0) pause();
                              }));
    server_ = MakeServer();
  }
  ASSERT_GT(child, 0);
  const AnsweredCall locking("flock", [](const Words& arguments, Word*) {
    const Word file = arguments[0];
    if (syscall(SYS_flock, file, arguments[1] | LOCK_NB) == 0) return Answer::kPass;
    return Answer::kRefuse;
  });
  client_ = OpenClient();
  EXPECT_TRUE(client_.ok) << "error " << client_.error;
  kill(child, SIGKILL);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

// ---- Two threads ----

// Waits until another thread has shut a descriptor down. It holds no mutex then.
class Shutdown {
 public:
  Shutdown()
      : call_("shutdown", [this](const Words&, Word*) {
          isShut_ = true;
          return Answer::kPass;
        }) {}

  void Await() const {
    while (!isShut_) std::this_thread::yield();
  }

 private:
  std::atomic<bool> isShut_{false};
  const AnsweredCall call_;
};

TEST_F(NamedPipe, AServerThatWaitsSeesAClientThatAnotherThreadHasTaken) {
  server_ = MakeServer();
  const Shutdown shutdown;
  std::thread other;
  const AnsweredCall waits(
      "ppoll", Precede([&] {
        client_ = OpenClient();
        other = std::thread([&] { ExpectContent(PeekPipe(server_.value, nullptr, 0), 0, 0); });
        shutdown.Await();
      }));
  ExpectOk(ConnectPipe(server_.value));
  other.join();
}

TEST_F(NamedPipe, AReadOfMessagesEndsWhenAnotherThreadDisconnects) {
  Connect(kMessages | kReadMessages);
  const Shutdown shutdown;
  std::thread other;
  const AnsweredCall waits("ppoll", Precede([&] {
                             other = std::thread([&] { ExpectOk(DisconnectPipe(server_.value)); });
                             shutdown.Await();
                           }));
  ExpectFailed(Read(4), ENOTCONN);
  other.join();
}

// What another thread does during a step. The step goes on when that is done, or after a short time.
class Meanwhile {
 public:
  explicit Meanwhile(std::function<void()> action)
      : thread_([this, action = std::move(action)] {
          action();
          isDone_ = true;
        }) {}
  ~Meanwhile() { thread_.join(); }
  Meanwhile(const Meanwhile&) = delete;
  Meanwhile& operator=(const Meanwhile&) = delete;

  bool isDone() const { return isDone_; }
  bool IsDoneWithin(std::chrono::milliseconds limit) const {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!isDone_ && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return isDone_;
  }

 private:
  std::atomic<bool> isDone_{false};
  std::thread thread_;
};

// A client may connect before the server waits for one.
void ExpectClient(const Result& connected) {
  if (!connected.ok) {
    EXPECT_EQ(connected.error, kErrorPipeConnected);
  }
}

constexpr std::chrono::milliseconds kBrief{50};
constexpr std::chrono::milliseconds kLong{10'000};

// The disconnect waits until the read has ended. A connect that begins meanwhile must not keep it
// waiting for a client.
TEST_F(NamedPipe, ADisconnectDoesNotWaitForAConnectThatBeginsLater) {
  Connect(0);
  const Shutdown shutdown;
  std::optional<Meanwhile> disconnect;
  std::optional<Meanwhile> connect;
  {
    const AnsweredCall reads("recv", Precede([&] {
                               disconnect.emplace([&] { ExpectOk(DisconnectPipe(server_.value)); });
                               shutdown.Await();
                               connect.emplace([&] { ExpectClient(ConnectPipe(server_.value)); });
                               EXPECT_FALSE(connect->IsDoneWithin(kBrief));
                             }));
    ExpectFailed(Read(1), EPIPE);
  }
  EXPECT_TRUE(disconnect->IsDoneWithin(kLong));
  EXPECT_FALSE(connect->isDone());
  ExpectOk(ClosePipe(client_.value));
  do client_ = OpenClient();
  while (!client_.ok);
  EXPECT_TRUE(connect->IsDoneWithin(kLong));
}

// The next client sends as soon as it is connected.
TEST_F(NamedPipe, AReadThatADisconnectEndsTakesNothingFromTheNextClient) {
  Connect(kMessages | kReadMessages);
  void* const earlier = client_.value;
  const Shutdown shutdown;
  std::optional<Meanwhile> disconnect;
  std::optional<Meanwhile> next;
  {
    const AnsweredCall waits(
        "ppoll", Precede([&] {
          disconnect.emplace([&] { ExpectOk(DisconnectPipe(server_.value)); });
          shutdown.Await();
          next.emplace([&] {
            std::thread connect([&] { ExpectClient(ConnectPipe(server_.value)); });
            do client_ = OpenClient();
            while (!client_.ok);
            Send("next");
            connect.join();
          });
          EXPECT_FALSE(next->IsDoneWithin(kBrief));
        }));
    ExpectFailed(Read(4), ENOTCONN);
  }
  EXPECT_TRUE(next->IsDoneWithin(kLong));
  ExpectCount(Read(4), 4);
  ExpectOk(ClosePipe(earlier));
}

TEST_F(NamedPipe, TwoReadsAtOnceTakeTheirOwnBytes) {
  Connect(0);
  Send("ab");
  char inner = 0;
  const AnsweredCall second("recv",
                            Precede([&] { ExpectCount(ReadPipe(server_.value, &inner, 1), 1); }));
  ExpectCount(Read(1), 1);
  EXPECT_EQ(inner, 'a');
  EXPECT_EQ(bytes_[0], 'b');
}

// ---- Looking at content ----

TEST_F(NamedPipe, APeekOfBytesReportsFailures) {
  Connect(0);
  Send("abc");
  {
    const AnsweredCall refused("ioctl", Refuse(EIO));
    ExpectFailed(Peek(2), EIO);
  }
  {
    const AnsweredCall refused("recv", Refuse(ECONNRESET));
    ExpectFailed(Peek(2), EPIPE);
  }
  {
    const AnsweredCall gone("recv", Refuse(EAGAIN));  // another thread has read them
    ExpectContent(Peek(2), 0, 3);
  }
  ExpectContent(Peek(0), 0, 3);
  ExpectContent(Peek(2), 2, 3);
}

TEST_F(NamedPipe, APeekOfMessagesReportsFailures) {
  Connect(kMessages | kReadMessages);
  Send("abc");
  const AnsweredCall refused("ioctl", Refuse(EIO));
  ExpectFailed(Peek(2), EIO);
}

TEST_F(NamedPipe, ALongMessageThatCannotBeTakenStays) {
  Connect(kMessages | kReadMessages);
  Send("abcdef");
  {
    const AnsweredCall refused("malloc", Refuse(ENOMEM));
    ExpectFailed(Read(2), ENOMEM);
  }
  {
    const AnsweredCall refused("recvmsg", Refuse(EIO, 1));
    ExpectFailed(Read(2), EIO);
  }
  ExpectFailed(Read(2), EMSGSIZE);
  ExpectCount(Read(4), 4);
}

// ---- The file of a pipe's name ----

TEST_F(IpcCalls, AFileThatIsNoneOfTheUsersIsNotAPipe) {
  ASSERT_EQ(mkfifo(PipeFile().c_str(), 0600), 0);
  ExpectFailed(OpenClient(), EACCES);
  std::filesystem::remove(PipeFile());

  std::ofstream(PipeFile()).close();
  {
    // The third user asked for is the owner of the file.
    const AnsweredCall other("geteuid", Give(kStranger, 2, 1));
    ExpectFailed(OpenClient(), EACCES);
    EXPECT_EQ(other.answered(), 1u);
  }
  std::filesystem::remove(PipeFile());
}

TEST_F(IpcCalls, APipeWhoseFileCannotBeWrittenIsNotMade) {
  {
    const AnsweredCall partly("pwrite", Give(3));
    ExpectFailed(MakeServer(), ENOSPC);
  }
  const AnsweredCall refused("pwrite", Refuse(EIO));
  ExpectFailed(MakeServer(), EIO);
  std::filesystem::remove(PipeFile());
}

// The kernel reports a lock by where it begins, which may be before what was asked for.
TEST_F(IpcCalls, ALockOfTheWholeFileCountsAsTheNextInstance) {
  std::ofstream(PipeFile()).close();
  const int holder = open(PipeFile().c_str(), O_RDWR | O_CLOEXEC);
  const int looker = open(PipeFile().c_str(), O_RDWR | O_CLOEXEC);
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(holder, F_OFD_SETLK, &whole), 0);
  EXPECT_EQ(NextInstance(looker, 0), 1u);
  EXPECT_EQ(NextInstance(looker, 7), 8u);
  close(looker);
  close(holder);
  std::filesystem::remove(PipeFile());
}

// ---- Shared memory blocks ----

class SharedBlock : public IpcCalls {
 protected:
  SharedBlock() : made_(MakeBlock(kName.c_str(), 100, kPagesReadWrite)) {}
  ~SharedBlock() override { ExpectOk(CloseBlock(made_.value)); }

  ValueResult<void*> made_;
};

TEST_F(IpcCalls, ABlockHasOneOfTwoProtectionsAndASize) {
  for (const uint32_t protection : {0u, 1u, kPagesReadOnly | kPagesReadWrite, 8u}) {
    ExpectFailed(MakeBlock(kName.c_str(), 100, protection), EINVAL);
  }
  ExpectFailed(MakeBlock(kName.c_str(), 0, kPagesReadWrite), EINVAL);
}

TEST_F(SharedBlock, AnUnknownAccessIsRefused) {
  ExpectFailed(OpenBlock(kName.c_str(), 1), EINVAL);
  ExpectFailed(MapBlock(made_.value, kViewRead | 8, 0), EINVAL);
}

TEST_F(SharedBlock, AViewMayNotDoMoreThanItsHandle) {
  const ValueResult<void*> reader = OpenBlock(kName.c_str(), kViewRead);
  ExpectFailed(MapBlock(reader.value, kViewWrite, 0), EACCES);
  const ValueResult<void*> nothing = OpenBlock(kName.c_str(), 0);
  ExpectFailed(MapBlock(nothing.value, kViewRead, 0), EACCES);
  const ValueResult<void*> view = MapBlock(nothing.value, 0, 0);
  EXPECT_TRUE(view.ok) << "a view without access needs none";
  ExpectOk(UnmapBlock(view.value));
  ExpectOk(CloseBlock(nothing.value));
  ExpectOk(CloseBlock(reader.value));
}

TEST_F(IpcCalls, ABlockOfReadOnlyPagesHasNoViewThatWrites) {
  const ValueResult<void*> block = MakeBlock(kName.c_str(), 100, kPagesReadOnly | kPagesReserve);
  ExpectFailed(MapBlock(block.value, kViewWrite, 0), EACCES);
  const ValueResult<void*> view = MapBlock(block.value, kViewRead, 0);
  EXPECT_TRUE(view.ok);
  ExpectOk(UnmapBlock(view.value));
  ExpectOk(CloseBlock(block.value));
}

}  // namespace
