// The end of a server during a backup's pause, and with a client that does not read its answers.
// The server is a separate process; the test acts as its clients.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "cell_store.h"
#include "channel/protocol.h"
#include "client/pipe_client.h"
#include "kivsdu/pipe.h"
#include "server/connection.h"
#include "server/serve_command.h"
#include "support/child_process.h"
#include "support/one_processor.h"
#include "support/waiting.h"

namespace cellhost {
namespace {

using kiv::test::ChildProcess;
using kiv::test::kLimitMs;
using kiv::test::kShortMs;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;
using test::CellStore;
using test::InThread;
using test::Numbered;

// The role of the server. Arguments: {facts, pipe, folder}
const RegisteredRole serverRole("server", [](const RoleArguments& arguments) {
  const kiv::test::OneProcessor oneProcessor;
  const test::InHost host;
  const ServeOptions options = {.facts = arguments[0], .pipe = arguments[1], .data = arguments[2]};
  return static_cast<uint32_t>(ServeCommand(options, LockDesign::kTestAndSet));
});

constexpr uint32_t kExitOfServer = 0;

class ServeEndTest : public test::CellStoreTest {
 protected:
  // The facts of CellStore.
  std::string Facts() {
    std::string rows = "row,column,number\n";
    for (uint32_t at = 0; at < test::kRows; ++at) {
      rows += Numbered("r", at) + Numbered(",c", at) + Numbered(",", at + 1) + "\n";
    }
    folder_.Write("facts.csv", rows);
    return folder_.Path("facts.csv");
  }

  // Sends a command; returns the reply.
  static std::string Ask(PipeClient* client, std::string_view command) {
    Reply reply = {};
    if (!client->Ask(command, &reply)) return "no answer";
    return std::string(reply.text);
  }

  std::string Files() const { return Bytes(Path("cells.pag")) + Bytes(Path("cells.jnl")); }

  const std::string pipe_ = UniqueName("serve_end");
  const ChildProcess server_{"server", {Facts(), pipe_, Folder()}};
};

// A client that does not read.
class RudeClient : public PipeClient {
 public:
  // Waits until the server cannot answer any more: the pipe is full when no byte has come for a
  // while. Its size depends on the platform.
  void AwaitFullPipe() {
    uint32_t before = 0;
    Stopwatch sinceChange;
    while (before == 0 || sinceChange.ElapsedMs() < kFullAfterMs) {
      const uint32_t now = UnreadBytes();
      if (now != before) sinceChange = Stopwatch();
      before = now;
      std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
    }
  }

 private:
  static constexpr double kFullAfterMs = 300;

  uint32_t UnreadBytes() {
    uint32_t availableBytes = 0;
    KivSdNamedPipePeek(nullptr, &pipe_, 0, nullptr, nullptr, &availableBytes, nullptr);
    return availableBytes;
  }
};

TEST_F(ServeEndTest, WritesCellsBackWhileAClientDoesNotRead) {
  constexpr uint32_t kUnread = 400;  // more answers than fit into the pipe
  RudeClient rude;
  ASSERT_TRUE(rude.Open(pipe_.c_str(), kLimitMs));
  for (uint32_t at = 0; at < kUnread; ++at) ASSERT_TRUE(rude.Send("QUERY TOP row 40"));
  rude.AwaitFullPipe();
  PipeClient client;
  ASSERT_TRUE(client.Open(pipe_.c_str(), 0));
  EXPECT_EQ(Ask(&client, "PUT r3 c4 5.25"), "stored");
  EXPECT_EQ(Ask(&client, "STOP"), "stopping");
  client.Leave();
  EXPECT_EQ(server_.ExitCode(), kExitOfServer);
  EXPECT_EQ(Bytes(Path("cells.jnl")), "");
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_EQ(store.files().replayed().carriedOut, 0u);
  EXPECT_EQ(store.Cell(3, 4), "5.25");
}

TEST_F(ServeEndTest, DoesNotChangeFilesUntilABackupsPauseIsOver) {
  PipeClient client;
  ASSERT_TRUE(client.Open(pipe_.c_str(), kLimitMs));
  EXPECT_EQ(Ask(&client, "PUT r3 c4 5.25"), "stored");
  const Stopwatch watch;
  EXPECT_TRUE(test::Contains(Ask(&client, "BACKUP 2"), "until a PUT finds that 2 s are over"));
  const std::string before = Files();
  std::thread writer([&] {
    const InThread record;
    PipeClient waiting;
    EXPECT_TRUE(waiting.Open(pipe_.c_str(), 0));
    EXPECT_EQ(Ask(&waiting, "PUT r3 c5 6.25"), "stored") << "it waits for the end of the pause";
    EXPECT_GE(watch.ElapsedMs(), 1000);
    waiting.Leave();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(5 * kShortMs));
  EXPECT_EQ(Ask(&client, "STOP"), "stopping");
  client.Leave();
  while (watch.ElapsedMs() < 900) {
    EXPECT_EQ(Files(), before);
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
  }
  writer.join();
  EXPECT_EQ(server_.ExitCode(), kExitOfServer);
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_EQ(store.Cell(3, 4), "5.25");
  EXPECT_EQ(store.Cell(3, 5), "6.25");
  CellStore copy;
  ASSERT_TRUE(copy.Open(Path("backup-1")));
  EXPECT_EQ(copy.Cell(3, 4), "5.25");
  EXPECT_EQ(copy.Cell(3, 5), "no data");
}

}  // namespace
}  // namespace cellhost
