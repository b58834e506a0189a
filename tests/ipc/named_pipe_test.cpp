// Named pipes between a server and its clients, on threads and in other processes.
//
// On Windows, clients that transfer data open their end with the system's own call.
// KivSdNamedPipeOpen always opens in overlapped mode, but KivSdPipeRead and KivSdPipeWrite pass no
// overlapped structure, and Windows does not define such transfers.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/own_process.h"
#include "support/system_interface.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kOsBrokenPipe;
using kiv::test::kOsMoreData;
using kiv::test::kOsNotConnected;
using kiv::test::kOsNotFound;
using kiv::test::kOsPipeBusy;
using kiv::test::kOsPipeClosing;
using kiv::test::kOsPipeConnected;
using kiv::test::kOsWaitTimedOut;
using kiv::test::OwnProcessId;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;

constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kReadWrite = GENERIC_READ | GENERIC_WRITE;

// A name that no other process uses.
std::string OwnName(const char* purpose) {
  return "kivsdu-" + std::to_string(OwnProcessId()) + "-" + purpose;
}

// The server's end of a pipe, by default with one instance.
struct Server {
  explicit Server(const char* purpose, uint32_t pipeMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE,
                  uint32_t maximumInstances = 1)
      : name(OwnName(purpose)) {
    Context ctx;
    CHECK_OK(ctx, KivSdNamedPipeCreate(ctx, name.c_str(), &pipe, PIPE_ACCESS_DUPLEX, pipeMode,
                                       maximumInstances, 4096, 4096, 50));
  }
  ~Server() { EXPECT_EQ(KivSdPipeClose(nullptr, &pipe), KIV_ST_OK); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  std::string name;
  KivHandle pipe = nullptr;
};

// A client's end for transfers (see the top of this file).
struct Client {
  explicit Client(const std::string& name, uint32_t readMode = PIPE_READMODE_BYTE)
      : pipe(Open(name, readMode)) {}
  ~Client() { EXPECT_EQ(KivSdPipeClose(nullptr, &pipe), KIV_ST_OK); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

#ifdef _WIN32
  static KivHandle Open(const std::string& name, uint32_t readMode) {
    const std::string path = "\\\\.\\PIPE\\" + name;
    const KivHandle opened =
        CreateFileA(path.c_str(), kReadWrite, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(opened, INVALID_HANDLE_VALUE) << GetLastError();
    DWORD mode = readMode;
    EXPECT_TRUE(SetNamedPipeHandleState(opened, &mode, nullptr, nullptr));
    return opened;
  }
#else
  static KivHandle Open(const std::string& name, uint32_t) {
    Context ctx;
    KivHandle opened = nullptr;
    CHECK_OK(ctx, KivSdNamedPipeOpen(ctx, "local", name.c_str(), &opened, kReadWrite, 0,
                                     OPEN_EXISTING, 0));
    return opened;
  }
#endif

  KivHandle pipe;
};

bool Send(KivHandle pipe, const std::string& text) {
  uint32_t count = 0;
  return KivSdPipeWrite(nullptr, &pipe, text.data(), static_cast<uint32_t>(text.size()), &count) ==
             KIV_ST_OK &&
         count == text.size();
}

// Reads one line. Every text between the processes ends with a line feed.
std::string ReceiveLine(KivHandle pipe) {
  std::string line;
  char letter = 0;
  uint32_t count = 0;
  while (letter != '\n' && KivSdPipeRead(nullptr, &pipe, &letter, 1, &count) == KIV_ST_OK) {
    line += letter;
  }
  return line;
}

// ---- Roles: {name of the pipe} ----

// Waits for the pipe, answers one line with "echo " and that line, and ends after a line "bye".
uint32_t PlayEcho(const RoleArguments& arguments) {
  if (KivSdNamedPipeWait(nullptr, "local", arguments[0].c_str(), kLimitMs) != KIV_ST_OK) {
    return 1;
  }
  const Client client(arguments[0]);
  if (!Send(client.pipe, "echo " + ReceiveLine(client.pipe))) return 2;
  return ReceiveLine(client.pipe) == "bye\n" ? 100 : 3;
}
const RegisteredRole echoRole("echo", PlayEcho);

// Connects, sends the line "here", and holds the pipe until the process is killed.
uint32_t PlayHolder(const RoleArguments& arguments) {
  const Client client(arguments[0]);
  if (!Send(client.pipe, "here\n")) return 1;
  KivSdSleep(nullptr, 0xFFFFFFFF);
  return 2;
}
const RegisteredRole holdRole("hold", PlayHolder);

// ---- Connecting ----

TEST(NamedPipeConnect, SucceedsWithAnOsErrorIfAClientHadConnectedBefore) {
  Context ctx;
  const Server server("before");
  KivHandle pipe = server.pipe;
  const Client client(server.name);
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &pipe), KIV_ST_OK, kOsPipeConnected);
  EXPECT_EQ(KivSdNamedPipeConnect(nullptr, &pipe), KIV_ST_OK);
}

// After a client was disconnected, the instance can be opened again only while the server waits in
// KivSdNamedPipeConnect. Only then does the second client's wait end and its open succeed.
TEST(NamedPipeConnect, FailsWithoutAnOsErrorIfAClientConnectsDuringTheCall) {
  Context ctx;
  Server server("during");
  {
    const Client first(server.name);
    CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &server.pipe), KIV_ST_OK, kOsPipeConnected);
    CHECK_OK(ctx, KivSdNamedPipeDisconnect(ctx, &server.pipe));
  }
  ChildProcess second("echo", {server.name});
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &server.pipe), KIV_ST_PIPE_CONNECT, 0u);
  EXPECT_TRUE(Send(server.pipe, "a\n"));
  EXPECT_EQ(ReceiveLine(server.pipe), "echo a\n");
  EXPECT_TRUE(Send(server.pipe, "bye\n"));
  EXPECT_EQ(second.ExitCode(), 100u);
}

TEST(NamedPipeConnect, FailsIfTheClientHasLeftAgain) {
  Context ctx;
  Server server("gone");
  { const Client client(server.name); }
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &server.pipe), KIV_ST_PIPE_CONNECT, kOsPipeClosing);
}

TEST(NamedPipeConnect, ServesClientsOneAfterTheOther) {
  Context ctx;
  Server server("several");
  for (const std::string line : {"one\n", "two\n", "three\n", "four\n"}) {
    ChildProcess client("echo", {server.name});
    const uint32_t connected = KivSdNamedPipeConnect(ctx, &server.pipe);
    const bool before = connected == KIV_ST_OK && ctx.osError() == kOsPipeConnected;
    const bool during = connected == KIV_ST_PIPE_CONNECT && ctx.osError() == 0;
    EXPECT_TRUE(before || during) << connected << ", " << ctx.osError();
    EXPECT_TRUE(Send(server.pipe, line));
    EXPECT_EQ(ReceiveLine(server.pipe), "echo " + line);
    EXPECT_TRUE(Send(server.pipe, "bye\n"));
    EXPECT_EQ(client.ExitCode(), 100u);
    CHECK_OK(ctx, KivSdNamedPipeDisconnect(ctx, &server.pipe));
  }
}

TEST(NamedPipeConnect, DisconnectEndsTheClientsTransfers) {
  Context ctx;
  Server server("cut");
  Client client(server.name);
  CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &server.pipe), KIV_ST_OK, kOsPipeConnected);
#ifdef _WIN32  // elsewhere the client still reads what the server sent before
  EXPECT_TRUE(Send(server.pipe, "never read"));
#endif
  CHECK_OK(ctx, KivSdNamedPipeDisconnect(ctx, &server.pipe));
  char byte = 0;
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &client.pipe, &byte, 1, &count), KIV_ST_PIPE_READ,
                kOsNotConnected);
  EXPECT_EQ(count, 0u);
  count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeWrite(ctx, &client.pipe, "x", 1, &count), KIV_ST_PIPE_WRITE,
                kOsNotConnected);
  EXPECT_EQ(count, 0u);
}

TEST(NamedPipeConnect, AKilledClientEndsTheServersRead) {
  Context ctx;
  Server server("killed");
  ChildProcess client("hold", {server.name});
  static_cast<void>(KivSdNamedPipeConnect(nullptr, &server.pipe));
  EXPECT_EQ(ReceiveLine(server.pipe), "here\n");
  std::thread killer([&] { client.Kill(); });
  char byte = 0;
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &server.pipe, &byte, 1, &count), KIV_ST_PIPE_READ,
                kOsBrokenPipe);
  EXPECT_EQ(count, 0u);
  killer.join();
  // The instance can be used again after a disconnect.
  CHECK_OK(ctx, KivSdNamedPipeDisconnect(ctx, &server.pipe));
}

// ---- Making, opening, waiting ----

#ifdef _WIN32  // properties of the handle that the library does not show
TEST(NamedPipe, IsInheritableAndHasTheRequestedTypeAndInstances) {
  const Server server("kind", PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 3);
  DWORD flags = 0;
  EXPECT_TRUE(GetHandleInformation(server.pipe, &flags));
  EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, static_cast<DWORD>(HANDLE_FLAG_INHERIT));
  DWORD kind = 0;
  DWORD instances = 0;
  EXPECT_TRUE(GetNamedPipeInfo(server.pipe, &kind, nullptr, nullptr, &instances));
  EXPECT_EQ(kind, static_cast<DWORD>(PIPE_SERVER_END | PIPE_TYPE_MESSAGE));
  EXPECT_EQ(instances, 3u);
}
#endif

TEST(NamedPipe, RefusesMoreInstancesThanTheMaximum) {
  Context ctx;
  const Server server("instances");
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(ctx,
                KivSdNamedPipeCreate(ctx, server.name.c_str(), &pipe, PIPE_ACCESS_DUPLEX, 0, 1,
                                     4096, 4096, 50),
                KIV_ST_PIPE_CREATE_NAMED, kOsPipeBusy);
  EXPECT_EQ(pipe, INVALID_HANDLE_VALUE);
}

TEST(NamedPipe, OpensOnThisMachineForLocalInUpperOrLowerCase) {
  Context ctx;
  for (const char* local : {"local", "LOCAL", "Local", "lOcAl"}) {
    Server server("open");
    KivHandle pipe = nullptr;
    CHECK_OK(ctx, KivSdNamedPipeWait(ctx, local, server.name.c_str(), 0));
    CHECK_OK(ctx, KivSdNamedPipeOpen(ctx, local, server.name.c_str(), &pipe, kReadWrite, 0,
                                     OPEN_EXISTING, 0));
    CHECK_OUTCOME(ctx, KivSdNamedPipeConnect(ctx, &server.pipe), KIV_ST_OK, kOsPipeConnected);
    CHECK_OK(ctx, KivSdPipeClose(ctx, &pipe));
  }
}

#ifdef _WIN32  // elsewhere there is no such mode
TEST(NamedPipe, OpensInOverlappedMode) {
  Server server("overlapped");
  KivHandle pipe = nullptr;
  ASSERT_EQ(KivSdNamedPipeOpen(nullptr, "local", server.name.c_str(), &pipe, kReadWrite, 0,
                               OPEN_EXISTING, 0),
            KIV_ST_OK);
  OVERLAPPED request = {};
  request.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  char letter = 0;
  DWORD count = 0;
  EXPECT_FALSE(ReadFile(pipe, &letter, 1, nullptr, &request));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_IO_PENDING));
  EXPECT_TRUE(Send(server.pipe, "x"));
  EXPECT_EQ(WaitForSingleObject(request.hEvent, kLimitMs), WAIT_OBJECT_0);
  EXPECT_TRUE(GetOverlappedResult(pipe, &request, &count, FALSE));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(letter, 'x');
  CloseHandle(request.hEvent);
  EXPECT_EQ(KivSdPipeClose(nullptr, &pipe), KIV_ST_OK);
}
#endif

TEST(NamedPipe, ABusyPipeCannotBeOpenedAndItsWaitTimesOut) {
  Context ctx;
  const Server server("busy");
  const Client client(server.name);
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(
      ctx,
      KivSdNamedPipeOpen(ctx, "local", server.name.c_str(), &pipe, kReadWrite, 0, OPEN_EXISTING, 0),
      KIV_ST_PIPE_OPEN, kOsPipeBusy);
  EXPECT_EQ(pipe, INVALID_HANDLE_VALUE);
  for (const uint32_t timeoutMs : {0u, 1u, 20u}) {  // 0 means the pipe's default of 50 ms
    CHECK_OUTCOME(ctx, KivSdNamedPipeWait(ctx, "local", server.name.c_str(), timeoutMs),
                  KIV_ST_PIPE_WAIT, kOsWaitTimedOut);
  }
}

TEST(NamedPipe, AMissingPipeIsNotFound) {
  Context ctx;
  const std::string name = OwnName("nowhere");
  KivHandle pipe = nullptr;
  CHECK_OUTCOME(
      ctx, KivSdNamedPipeOpen(ctx, "local", name.c_str(), &pipe, kReadWrite, 0, OPEN_EXISTING, 0),
      KIV_ST_PIPE_OPEN, kOsNotFound);
  EXPECT_EQ(pipe, INVALID_HANDLE_VALUE);
  CHECK_OUTCOME(ctx, KivSdNamedPipeWait(ctx, "local", name.c_str(), kLimitMs), KIV_ST_PIPE_WAIT,
                kOsNotFound);
  EXPECT_EQ(KivSdNamedPipeWait(nullptr, "local", name.c_str(), 1), KIV_ST_PIPE_WAIT);
}

TEST(NamedPipe, RefusesNullPointersAndWritesNoOutput) {
  Context ctx;
  KivHandle pipe = &ctx;
  CHECK_ARGUMENT(ctx, KivSdNamedPipeCreate(ctx, nullptr, &pipe, 3, 0, 1, 1, 1, 1));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeCreate(ctx, "a", nullptr, 3, 0, 1, 1, 1, 1));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeOpen(ctx, nullptr, "a", &pipe, kReadWrite, 0, 3, 0));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeOpen(ctx, "local", nullptr, &pipe, kReadWrite, 0, 3, 0));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeOpen(ctx, "local", "a", nullptr, kReadWrite, 0, 3, 0));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeWait(ctx, nullptr, "a", 1));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeWait(ctx, "local", nullptr, 1));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeConnect(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeDisconnect(ctx, nullptr));
  uint32_t count = kUntouched;
  CHECK_ARGUMENT(ctx, KivSdNamedPipePeek(ctx, nullptr, 0, nullptr, &count, &count, &count));
  EXPECT_EQ(pipe, &ctx);
  EXPECT_EQ(count, kUntouched);
  EXPECT_EQ(KivSdNamedPipeConnect(nullptr, nullptr), KIV_ST_ARGUMENT);
}

// ---- Peeking, messages ----

struct Content {
  uint32_t read = kUntouched;
  uint32_t available = kUntouched;
  uint32_t left = kUntouched;
  std::string bytes;
};

Content Peek(KivHandle pipe, uint32_t bufferBytes) {
  Context ctx;
  Content content;
  content.bytes.resize(bufferBytes);
  CHECK_OK(ctx, KivSdNamedPipePeek(ctx, &pipe, bufferBytes, content.bytes.data(), &content.read,
                                   &content.available, &content.left));
  content.bytes.resize(std::min(content.read, bufferBytes));
  return content;
}

TEST(NamedPipePeek, CountsBytesWithoutRemovingThem) {
  Server server("peek");
  const Client client(server.name);
  EXPECT_EQ(Peek(server.pipe, 8).available, 0u);
  EXPECT_EQ(Peek(server.pipe, 8).read, 0u);
  ASSERT_TRUE(Send(client.pipe, "one"));
  ASSERT_TRUE(Send(client.pipe, "three\n"));
  const Content content = Peek(server.pipe, 5);
  EXPECT_EQ(content.bytes, "oneth");
  EXPECT_EQ(content.available, 9u);
  EXPECT_EQ(ReceiveLine(server.pipe), "onethree\n");
  EXPECT_EQ(Peek(server.pipe, 5).available, 0u);
}

TEST(NamedPipePeek, ShowsOneMessageAndTheBytesLeftOfIt) {
  Server server("messages", PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE);
  const Client client(server.name, PIPE_READMODE_MESSAGE);
  EXPECT_EQ(Peek(server.pipe, 8).available, 0u);
  ASSERT_TRUE(Send(client.pipe, "first"));
  ASSERT_TRUE(Send(client.pipe, "second"));
  const Content content = Peek(server.pipe, 3);
  EXPECT_EQ(content.bytes, "fir");
  EXPECT_EQ(content.available, 11u);
  EXPECT_EQ(content.left, 2u);
  EXPECT_EQ(Peek(server.pipe, 64).bytes, "first");
  EXPECT_EQ(Peek(server.pipe, 64).left, 0u);
}

TEST(NamedPipePeek, AcceptsNullOutputs) {
  Context ctx;
  Server server("places");
  const Client client(server.name);
  ASSERT_TRUE(Send(client.pipe, "abc"));
  uint32_t available = 0;
  CHECK_OK(ctx, KivSdNamedPipePeek(ctx, &server.pipe, 0, nullptr, nullptr, nullptr, nullptr));
  CHECK_OK(ctx, KivSdNamedPipePeek(ctx, &server.pipe, 0, nullptr, nullptr, &available, nullptr));
  EXPECT_EQ(available, 3u);
}

TEST(NamedPipeMessage, LongerThanTheBufferIsReadInPartsThatFail) {
  Context ctx;
  Server server("parts", PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE);
  const Client client(server.name, PIPE_READMODE_MESSAGE);
  ASSERT_TRUE(Send(client.pipe, "abcde"));
  char part[3] = {};
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &server.pipe, part, 3, &count), KIV_ST_PIPE_READ,
                kOsMoreData);
  EXPECT_EQ(std::string(part, 3), "abc");
  EXPECT_EQ(count, 3u);
  CHECK_OK(ctx, KivSdPipeRead(ctx, &server.pipe, part, 3, &count));
  EXPECT_EQ(std::string(part, 2), "de");
  EXPECT_EQ(count, 2u);
}

}  // namespace
