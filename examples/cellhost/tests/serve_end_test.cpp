// How a server ends: during a pause that is for another program, and beside a client that does not
// read its answers. The server is a process of its own, and the test its clients.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "cell_store.h"
#include "client/pipe_client.h"
#include "kivsdu/pipe.h"
#include "server/connection.h"
#include "server/protocol.h"
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

// {facts, pipe, folder}
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

  // What the server says to a command.
  static std::string Ask(PipeClient* client, std::string_view command) {
    Reply reply = {};
    if (!client->Ask(command, &reply)) return "no answer";
    return std::string(reply.text);
  }

  std::string Files() const { return Bytes(Path("cells.pag")) + Bytes(Path("cells.jnl")); }

  const std::string pipe_ = UniqueName("serve_end");
  const ChildProcess server_{"server", {Facts(), pipe_, Folder()}};
};

// A client that can tell how much it has not read.
class RudeClient : public PipeClient {
 public:
  uint32_t UnreadBytes() {
    uint32_t availableBytes = 0;
    KivSdNamedPipePeek(nullptr, &pipe_, 0, nullptr, nullptr, &availableBytes, nullptr);
    return availableBytes;
  }
};

TEST_F(ServeEndTest, CellsAreWrittenBackBesideAClientThatDoesNotRead) {
  constexpr uint32_t kUnread = 400;             // more answers than the pipe has room for
  constexpr uint32_t kAnswerBytesAtMost = 600;  // so the next one does not fit
  const TimeLimit limit(kLimitMs);
  RudeClient rude;
  ASSERT_TRUE(rude.Open(pipe_.c_str(), kLimitMs));
  for (uint32_t at = 0; at < kUnread; ++at) ASSERT_TRUE(rude.Send("QUERY TOP row 40"));
  while (rude.UnreadBytes() + kAnswerBytesAtMost <= kReplyBufferBytes) ASSERT_FALSE(limit.passed());
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

TEST_F(ServeEndTest, FilesStandStillUntilThePauseOfABackupIsOver) {
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
