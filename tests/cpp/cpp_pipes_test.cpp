// Pipes of the C++ layer: both kinds, messages, and the server's loop.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <utility>

#include "kivsdu/kivsdu.hpp"
#include "support/import_patch.h"
#include "support/waiting.h"

namespace {

using kiv::test::ScriptedImport;
using kivsdu::ErrorCode;
using kivsdu::NamedPipe;
using kivsdu::Pipe;
using kivsdu::PipeData;
using kivsdu::PipeEnd;
using kivsdu::PipeServer;
using kivsdu::Thread;

constexpr uint32_t kReadAndWrite = KIV_ACCESS_READ | KIV_ACCESS_WRITE;
constexpr std::chrono::milliseconds kLimit(kiv::test::kLimitMs);

std::string ReadText(PipeEnd& end) {
  char text[64] = {};
  const PipeData data = end.Read(text, sizeof(text));
  return std::string(text, data.bytes);
}

// ---- Anonymous pipes ----

TEST(CppPipe, CarriesBytes) {
  Pipe pipe;
  pipe.writeEnd.Write("abc", 3);
  EXPECT_EQ(pipe.readEnd.Available(), 3u);
  EXPECT_EQ(ReadText(pipe.readEnd), "abc");
  EXPECT_EQ(pipe.readEnd.Available(), 0u);
}

TEST(CppPipe, EndsWithItsWriter) {
  Pipe pipe;
  pipe.writeEnd.Write("last", 4);
  pipe.writeEnd.Close();
  EXPECT_FALSE(pipe.writeEnd.IsOpen());
  EXPECT_EQ(ReadText(pipe.readEnd), "last");
  char byte = 0;
  const PipeData data = pipe.readEnd.Read(&byte, 1);
  EXPECT_TRUE(data.isEnd);
  EXPECT_EQ(data.bytes, 0u);
}

TEST(CppPipe, RefusesAWriteWithoutAReader) {
  Pipe pipe;
  pipe.readEnd.Close();
  ErrorCode error;
  pipe.writeEnd.Write("abc", 3, error);
  EXPECT_EQ(error.Status(), KIV_ST_PIPE_WRITE);
  EXPECT_NE(error.OsError(), 0u);
  EXPECT_THROW(pipe.readEnd.Available(), kivsdu::Failure);
  EXPECT_THROW(pipe.readEnd.Close(), kivsdu::Failure);
}

TEST(CppPipe, ThatCannotBeMadeThrows) {
  for (const uint32_t osError : {8u, 0u}) {  // a failure without an OS error is no success here
    const ScriptedImport failing("CreatePipe", {.result = 0, .error = osError});
    EXPECT_THROW(Pipe(), kivsdu::Failure);
    ErrorCode error;
    const Pipe pipe(0, error);
    EXPECT_EQ(error.Status(), KIV_ST_PIPE_CREATE);
    EXPECT_EQ(error.OsError(), osError);
    EXPECT_FALSE(pipe.readEnd.IsOpen());
  }
}

// ---- Named pipes ----

class CppNamedPipe : public testing::Test {
 protected:
  const std::string name_ = kiv::test::UniqueName("cpp-pipe");

  PipeEnd Open() const { return PipeEnd::Open(name_.c_str(), kReadAndWrite); }
};

TEST_F(CppNamedPipe, ConnectsAClientThatCameBeforeAndOneThatComesLater) {
  NamedPipe server(name_.c_str());
  {
    PipeEnd client = Open();
    EXPECT_TRUE(server.Connect());
    client.Write("early", 5);
    EXPECT_EQ(ReadText(server.End()), "early");
  }
  server.Disconnect();
  PipeEnd client;
  const Thread thread([&] {
    EXPECT_TRUE(kivsdu::WaitForPipe(name_.c_str(), kLimit));
    client = Open();
    client.Write("late", 4);
  });
  EXPECT_TRUE(server.Connect());
  EXPECT_EQ(ReadText(server.End()), "late");
}

TEST_F(CppNamedPipe, TellsThatAClientCameAndLeft) {
  NamedPipe server(name_.c_str());
  Open().Close();
  EXPECT_FALSE(server.Connect());
  server.Disconnect();
  PipeEnd client;
  const Thread thread([&] {
    EXPECT_TRUE(kivsdu::WaitForPipe(name_.c_str(), kLimit));
    client = Open();
  });
  EXPECT_TRUE(server.Connect());
}

TEST_F(CppNamedPipe, EndsForAClientThatTheServerHasDisconnected) {
  NamedPipe server(name_.c_str());
  PipeEnd client = Open();
  EXPECT_TRUE(server.Connect());
  server.Disconnect();
  char byte = 0;
  const PipeData data = client.Read(&byte, 1);
  EXPECT_TRUE(data.isEnd);
  EXPECT_EQ(data.bytes, 0u);
}

TEST_F(CppNamedPipe, TellsInNoWaitModeHowManyBytesHadRoom) {
  kivsdu::PipeForm form;
  form.pipeMode |= KIV_PIPE_NO_WAIT;
  NamedPipe server(name_.c_str(), form);
  const PipeEnd client = Open();
  EXPECT_TRUE(server.Connect());
  const std::string bytes(4096, 'x');
  uint32_t written = 0;
  int writes = 0;
  do {
    written = server.End().Write(bytes.data(), 4096);
    ++writes;
  } while (written == 4096 && writes < 100000);
  EXPECT_LT(written, 4096u);
}

TEST_F(CppNamedPipe, SeparatesMessages) {
  kivsdu::PipeForm form;
  form.pipeMode = kivsdu::kPipeOfMessages;
  NamedPipe server(name_.c_str(), form);
  PipeEnd client = Open();
  ASSERT_TRUE(server.Connect());
  client.Write("first", 5);
  client.Write("second", 6);
  char text[8] = {};
  PipeData data = server.End().Read(text, sizeof(text));
  EXPECT_EQ(std::string(text, data.bytes), "first");
  EXPECT_FALSE(data.hasRest);
  data = server.End().Read(text, 4);
  EXPECT_EQ(std::string(text, data.bytes), "seco");
  EXPECT_TRUE(data.hasRest);
  data = server.End().Read(text, 4);
  EXPECT_EQ(std::string(text, data.bytes), "nd");
  EXPECT_FALSE(data.hasRest);
}

TEST_F(CppNamedPipe, ReportsFailures) {
  ErrorCode error;
  PipeEnd client = PipeEnd::Open(name_.c_str(), kReadAndWrite, KIV_PIPE_THIS_MACHINE, error);
  EXPECT_EQ(error.Status(), KIV_ST_PIPE_OPEN);
  EXPECT_EQ(error.OsError(), kivsdu::detail::kOsNoSuchPipe);
  EXPECT_FALSE(client.IsOpen());
  EXPECT_FALSE(kivsdu::WaitForPipe(name_.c_str(), std::chrono::milliseconds(0)));

  kivsdu::PipeForm form;
  form.openMode |= KIV_PIPE_FIRST_INSTANCE;
  const NamedPipe first(name_.c_str(), form);
  const NamedPipe second(name_.c_str(), form, error);
  EXPECT_EQ(error.Status(), KIV_ST_PIPE_CREATE_NAMED);
  EXPECT_THROW(NamedPipe(name_.c_str(), form), kivsdu::Failure);

  client = Open();
  const PipeEnd tooMany = PipeEnd::Open(name_.c_str(), kReadAndWrite, KIV_PIPE_THIS_MACHINE, error);
  EXPECT_EQ(error.OsError(), kivsdu::detail::kOsPipeBusy);
}

// ---- The server's loop ----

TEST_F(CppNamedPipe, IsServedUntilTheServerIsStopped) {
  PipeServer server(name_.c_str());
  Thread thread([&] {
    server.Run([](PipeEnd& client) {
      char text[64];
      for (PipeData data = client.Read(text, sizeof(text)); !data.isEnd;
           data = client.Read(text, sizeof(text))) {
        client.Write(text, data.bytes);
      }
    });
  });
  for (const char* request : {"one", "two", "three"}) {
    ASSERT_TRUE(kivsdu::WaitForPipe(name_.c_str(), kLimit));
    PipeEnd client = Open();
    client.Write(request, static_cast<uint32_t>(std::strlen(request)));
    EXPECT_EQ(ReadText(client), request);
  }
  server.Stop();
  thread.Join();
}

TEST_F(CppNamedPipe, IsNotServedAfterTheServerWasStopped) {
  PipeServer server(name_.c_str());
  server.Stop();
  std::atomic<int> served = 0;
  const PipeEnd client = Open();
  server.Run([&](PipeEnd&) { ++served; });
  EXPECT_EQ(served, 0);
}

TEST_F(CppNamedPipe, IsStoppedWhileTheServerWaitsOrServes) {
  for (int round = 0; round < 20; ++round) {
    PipeServer server(name_.c_str());
    Thread thread([&] { server.Run([](PipeEnd& client) { ReadText(client); }); });
    PipeEnd client;
    if (round % 2 == 1) client = Open();
    const Thread leaving([client = std::move(client)]() mutable { client = {}; });
    server.Stop();
  }
}

TEST_F(CppNamedPipe, EndsItsLoopWithTheExceptionOfTheHandler) {
  PipeServer server(name_.c_str());
  const PipeEnd client = Open();
  EXPECT_THROW(server.Run([](PipeEnd&) { throw 42; }), int);
  server.Stop();
}

TEST_F(CppNamedPipe, IsServedByASecondLoopUntilTheServerIsStopped) {
  PipeServer server(name_.c_str());
  {
    const PipeEnd client = Open();
    EXPECT_THROW(server.Run([](PipeEnd&) { throw 42; }), int);
  }
  std::atomic<bool> isServing = false;
  std::atomic<bool> isServed = false;
  const Thread thread([&] {
    server.Run([&](PipeEnd&) {
      isServing = true;
      KivSdSleep(nullptr, 100);
      isServed = true;
    });
  });
  ASSERT_TRUE(kivsdu::WaitForPipe(name_.c_str(), kLimit));
  const PipeEnd client = Open();
  while (!isServing) KivSdThreadYield(nullptr);
  server.Stop();
  EXPECT_TRUE(isServed);
}

}  // namespace
