// Clients over shared memory: answers, chunks, clients killed at every step of a request, and
// hostile clients.
#include "server/segment_server.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "server_fixture.h"
#include "support/child_process.h"
#include "support/import_patch.h"
#include "support/segment.h"
#include "support/threads.h"

namespace cellhost {
namespace {

using kiv::test::AreaView;
using kiv::test::ChildProcess;
using kiv::test::EmptyMember;
using kiv::test::FullMember;
using kiv::test::IsGiven;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::Member;
using kiv::test::OnThreads;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Script;
using kiv::test::ScriptedImport;
using kiv::test::SharedSignal;
using kiv::test::UniqueName;
using test::ChunkClient;
using test::InHost;
using test::InThread;
using test::kLongQuery;
using test::LongAnswer;
using test::Server;

class SegmentServerTest : public testing::Test {
 protected:
  // Sends a command over the pipe, without a chunk; returns the reply.
  std::string OverPipe(std::string_view command) {
    PipeClient client;
    Reply reply = {};
    if (!client.Open(server_.pipe(), 0) || !client.Ask(command, &reply)) return "no answer";
    std::string text((reply.ok ? "OK " : "ERROR ") + std::string(reply.text));
    client.Leave();
    return text;
  }

  void ExpectBeginning(int32_t chunk) {
    for (const bool half : {true, false}) {
      EXPECT_FALSE(IsGiven(server_.segment(), FullMember(chunk, half))) << chunk;
      EXPECT_TRUE(IsGiven(server_.segment(), EmptyMember(chunk, half))) << chunk;
    }
  }

  // Waits until the chunk is taken or free, as given by `taken`.
  void AwaitTaken(int32_t chunk, bool taken) {
    const TimeLimit limit(kLimitMs);
    while (((server_.takenMask() >> chunk & 1) != 0) != taken) {
      ASSERT_FALSE(limit.passed());
      KivSdSleep(nullptr, 1);
    }
  }

  // Waits for the count of lost clients, which is updated after their chunks are freed.
  void AwaitLost(uint32_t lost) {
    const TimeLimit limit(kLimitMs);
    while (server_.service()->lost.load() != lost && !limit.passed()) KivSdSleep(nullptr, 1);
    EXPECT_EQ(server_.service()->lost.load(), lost);
  }

  InHost host_;
  Server server_;
};

// ---- Answers ----

TEST_F(SegmentServerTest, AnswersTheCommandsOfThePipeWithCodes) {
  ChunkClient client(server_.pipe());
  EXPECT_EQ(client.Ask("QUERY SUM fruit=apple"), "1 SUM fruit=apple: 125250");
  EXPECT_EQ(client.Ask("PUT apple 7 0"), "1 stored");
  EXPECT_EQ(client.Ask("QUERY SUM fruit=apple"), "1 SUM fruit=apple: 125243");
  EXPECT_EQ(client.Ask("QUERY CELL apple 8"), "1 CELL apple 8: 8");
  EXPECT_EQ(client.Ask("QUERY SUM fruit=quince"), "1 SUM fruit=quince: unknown member");
  EXPECT_EQ(client.Ask("HOG 3"), "1 took 3 MiB; no warning; totals not counted");
  EXPECT_TRUE(client.Ask("STATS").starts_with(
      "1 rows 500, cells 500, clients 1, lost 0, queries 4, puts 1, uptime "));
  EXPECT_EQ(client.Ask("CHUNK"), "1 1");
}

TEST_F(SegmentServerTest, AnswersInvalidRequestsWithCode2) {
  ChunkClient client(server_.pipe());
  EXPECT_EQ(client.Ask("QUERY DROP cube"),
            "2 'DROP' is no query; write SUM, TOP or CELL in capitals");
  EXPECT_EQ(client.Ask("PUT apple 501 5"), "2 nothing stored: 'number' has no member '501'");
  EXPECT_EQ(client.Ask("PUT apple 4 five"), "2 'five' is not a number; write it as in 12 or -3.5");
  EXPECT_TRUE(client.Ask("HOG 0").starts_with("2 write HOG and how many MiB"));
  EXPECT_TRUE(client.Ask("").starts_with("2 no such command"));
  EXPECT_TRUE(client.Ask("query").starts_with("2 no such command"));
  EXPECT_EQ(client.Ask("STOP"), "2 send that over the pipe");
  EXPECT_EQ(client.Ask("SEGMENT"), "2 send that over the pipe");
  EXPECT_EQ(client.Ask("QUERY CELL apple 5"), "1 CELL apple 5: 5");
}

TEST_F(SegmentServerTest, SplitsLongAnswersIntoHalves) {
  ChunkClient client(server_.pipe());
  ASSERT_GT(LongAnswer().size(), 2u * KIV_SEGMENT_PAYLOAD_BYTES);
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(client.Ask(kLongQuery), "1 " + LongAnswer());
  }
  EXPECT_EQ(OverPipe(kLongQuery), "OK " + LongAnswer());
}

TEST_F(SegmentServerTest, AcceptsRequestsOfUpToAHalf) {
  ChunkClient client(server_.pipe());
  const std::string query = "QUERY SUM fruit=apple";
  const std::string longest = query + std::string(kChunkRequestBytesMax - query.size(), ' ');
  EXPECT_EQ(client.Ask(longest), "1 SUM fruit=apple: 125250");
  EXPECT_EQ(client.Ask(longest + " "), "no answer");
  EXPECT_EQ(client.Ask(query), "1 SUM fruit=apple: 125250");
}

TEST_F(SegmentServerTest, AnswersOverThePipeWhileAClientHasAChunk) {
  ChunkClient client(server_.pipe());
  Reply reply = {};
  EXPECT_TRUE(client->pipe()->Ask("QUERY CELL apple 9", &reply));
  EXPECT_TRUE(reply.ok);
  EXPECT_EQ(reply.text, "CELL apple 9: 9");
  EXPECT_EQ(client.Ask("QUERY CELL apple 5"), "1 CELL apple 5: 5");
}

void Send(ChunkClient& client, std::string_view request) {
  const std::string text(request);
  EXPECT_EQ(KivWriteSharedMemChunk(nullptr, client->segment(), client.chunk(),
                                   static_cast<uint32_t>(text.size()) + 1, 1, 0, text.c_str()),
            KIV_ST_OK);
}

std::string Read(ChunkClient& client, uint32_t lengthBytes) {
  std::string room(lengthBytes + 1, '\0');
  while (KivReadSharedMemChunk(nullptr, client->segment(), client.chunk(), lengthBytes, 0, nullptr,
                               room.data()) == KIV_ST_SEM_TIMEOUT) {
  }
  room.resize(lengthBytes);
  return room;
}

// Reads an answer of up to a half without memory of the library. Returns code, blank and text.
std::string ReadAnswer(ChunkClient& client) {
  const std::string text = Read(client, ReadLength(Read(client, kLengthBytes).data()));
  uint32_t code = 0;
  while (KivReadSharedMemChunkCode(nullptr, client->segment(), client.chunk(), &code) ==
         KIV_ST_SEM_TIMEOUT) {
  }
  return std::to_string(code) + " " + text;
}

TEST_F(SegmentServerTest, AnswersWithCode3WithoutMemory) {
  ChunkClient client(server_.pipe());
  for (int time = 0; time < 2; ++time) {
    {
      const Script none = {.result = 0, .error = 12};
      const ScriptedImport malloc("malloc", none);
      const ScriptedImport realloc("realloc", none);
      for (const char* request : {"QUERY CELL apple 5", "PUT apple 5 6", "HOG 1"}) {
        Send(client, request);
        EXPECT_EQ(ReadAnswer(client), "3 no memory for the words");
      }
      Send(client, "BYES");  // an unknown command needs no memory
      EXPECT_TRUE(ReadAnswer(client).starts_with("2 no such command"));
    }
    EXPECT_EQ(client.Ask("QUERY CELL apple 5"), "1 CELL apple 5: 5");
    EXPECT_EQ(client.Ask("QUERY SUM fruit=apple"), "1 SUM fruit=apple: 125250");
  }
}

// The words of a PUT use malloc, growing buffers realloc; only realloc fails here. The cell exists
// and needs no memory.
TEST_F(SegmentServerTest, ReportsAStoredPutWithoutMemoryForAReply) {
  const Script none = {.result = 0, .error = 12};
  ChunkClient client(server_.pipe());
  {
    const ScriptedImport realloc("realloc", none);
    Send(client, "PUT apple 5 6");
    EXPECT_EQ(ReadAnswer(client), "1 stored");
    Send(client, "PUT apple 501 6");
    EXPECT_EQ(ReadAnswer(client), "2 nothing stored: 'number' has no member '501'");
  }
  EXPECT_EQ(client.Ask("QUERY CELL apple 5"), "1 CELL apple 5: 6");
}

// A client that writes raw bytes, and reads without memory of the library.
class RawPipe : public PipeClient {
 public:
  bool Write(std::string_view bytes) {
    uint32_t writtenBytes = 0;
    return KivSdPipeWrite(nullptr, &pipe_, bytes.data(), static_cast<uint32_t>(bytes.size()),
                          &writtenBytes) == 0;
  }

  // Reads raw bytes, including a message's length. Returns fewer bytes if the pipe was closed.
  std::string Read(uint32_t lengthBytes) {
    std::string room(lengthBytes, '\0');
    uint32_t readBytes = 0;
    KivSdPipeRead(nullptr, &pipe_, room.data(), lengthBytes, &readBytes);
    return room.substr(0, readBytes);
  }
};

TEST_F(SegmentServerTest, ReportsAStoredPutOverThePipeWithoutMemoryForAReply) {
  const std::string stored("\x09\0\0\0OK stored", 13);
  RawPipe client;
  Reply reply = {};
  ASSERT_TRUE(client.Open(server_.pipe(), 0));
  // Afterwards both ends have room for an order, but the server has sent only a shorter reply.
  ASSERT_TRUE(client.Ask("CHUNK and as many words as there are in an order", &reply));
  {
    const ScriptedImport realloc("realloc", {.result = 0, .error = 12});
    ASSERT_TRUE(client.Send("PUT apple 5 6"));
    for (const TimeLimit limit(kLimitMs); client.Glance() == Received::kTimedOut;) {
      ASSERT_FALSE(limit.passed());
    }
    EXPECT_EQ(client.Read(static_cast<uint32_t>(stored.size())), stored);
  }
  client.Leave();
}

// ---- Chunks ----

TEST_F(SegmentServerTest, GivesFiveClientsAChunkEachAndRefusesTheSixth) {
  auto clients = std::make_unique<std::vector<std::unique_ptr<ChunkClient>>>();
  for (int32_t chunk = 0; chunk < 5; ++chunk) {
    clients->push_back(std::make_unique<ChunkClient>(server_.pipe()));
    EXPECT_EQ(clients->back()->chunk(), chunk);
  }
  EXPECT_EQ(OverPipe("SEGMENT"), "ERROR all chunks are taken; ask again later");
  SegmentClient sixth;
  EXPECT_TRUE(sixth.Open(server_.pipe(), 0));
  EXPECT_EQ(sixth.AskForChunk(), Given::kNone);
  EXPECT_FALSE(sixth.AwaitChunk(0));
  EXPECT_EQ(sixth.chunk(), KIV_CHUNK_NONE);

  std::thread waiting([&] {
    const InThread record;
    EXPECT_TRUE(sixth.AwaitChunk(kLimitMs));
  });
  (*clients)[3].reset();
  waiting.join();
  EXPECT_EQ(sixth.chunk(), 3);
  Reply reply = {};
  EXPECT_TRUE(sixth.Ask("QUERY CELL apple 6", &reply));
  EXPECT_EQ(reply.text, "CELL apple 6: 6");
  sixth.Leave();
}

TEST_F(SegmentServerTest, ServesFiveClientsAtOnce) {
  OnThreads(5, [&](uint32_t number) {
    const InThread record;
    ChunkClient client(server_.pipe());
    const std::string cell = "apple " + std::to_string(number + 1);
    const std::string put = "PUT " + cell + " ";
    const std::string query = "QUERY CELL " + cell;
    const std::string said = "1 CELL " + cell + ": ";
    for (uint32_t time = 0; time < 60; ++time) {
      const std::string value = std::to_string(time);
      EXPECT_EQ(client.Ask(put + value), "1 stored");
      EXPECT_EQ(client.Ask(query), said + value);
      if (time % 10 == 0) {
        EXPECT_TRUE(client.Ask(kLongQuery).starts_with("1 TOP number 500: 500 500, 499 499"));
      }
    }
  });
  EXPECT_EQ(server_.service()->lost.load(), 0u);
}

TEST_F(SegmentServerTest, FreesAChunkAfterBye) {
  ChunkClient client(server_.pipe());
  const Member full(server_.segment(), FullMember(0, false));
  const char bye[] = "BYE";
  EXPECT_EQ(KivWriteSharedMemChunk(nullptr, client->segment(), 0, sizeof bye, 1, 0, bye),
            KIV_ST_OK);
  AwaitTaken(0, false);
  ExpectBeginning(0);
  // The connection goes on.
  EXPECT_EQ(client->AskForChunk(), Given::kOne);
  EXPECT_EQ(client.Ask("CHUNK"), "1 1");
}

// A leaving client sends BYE over its chunk, so that the server need not wait for a time-out.
TEST_F(SegmentServerTest, FreesTheChunkOfALeavingClientAtOnce) {
  server_.SetTimeout(2 * kLimitMs);
  { const ChunkClient client(server_.pipe()); }
  AwaitTaken(0, false);
  AwaitLost(0);
}

TEST_F(SegmentServerTest, FreesTheChunkOfAClientThatClosesThePipe) {
  for (const uint32_t lost : {0u, 1u}) {
    {
      SegmentClient client;
      EXPECT_TRUE(client.Open(server_.pipe(), 0));
      EXPECT_EQ(client.AskForChunk(), Given::kOne);
      EXPECT_EQ(client.chunk(), 0);
      if (lost == 0) client.pipe()->Leave();
      // Otherwise its destructor closes the pipe.
    }
    AwaitTaken(0, false);
    ExpectBeginning(0);
    AwaitLost(lost);
  }
}

TEST_F(SegmentServerTest, ResetsTheChunkOfAClientThatLostTrack) {
  ChunkClient other(server_.pipe());
  ChunkClient client(server_.pipe());
  const int32_t chunk = client.chunk();
  // A request that was only partly written, and wrong semaphores in the server's half.
  EXPECT_EQ(KivWriteSharedMemChunk(nullptr, client->segment(), chunk, 5, 0, 0, "QUERY"), KIV_ST_OK);
  EXPECT_TRUE(Member(server_.segment(), EmptyMember(chunk, true)).Take());
  EXPECT_TRUE(Member(server_.segment(), FullMember(chunk, true)).Give());
  EXPECT_EQ(client->AskForChunk(), Given::kOne);
  EXPECT_EQ(client.chunk(), chunk);
  ExpectBeginning(chunk);
  EXPECT_EQ(client.Ask("QUERY CELL apple 2"), "1 CELL apple 2: 2");
  EXPECT_EQ(other.Ask("QUERY CELL apple 3"), "1 CELL apple 3: 3");
}

TEST_F(SegmentServerTest, EndsWhileClientsHaveChunks) {
  ChunkClient idle(server_.pipe());
  ChunkClient asking(server_.pipe());
  const kiv::test::Stopwatch watch;
  std::thread stop([&] {
    const InThread record;
    server_.Stop();
  });
  while (asking.Ask("QUERY CELL apple 2") != "no answer") {
    ASSERT_LT(watch.ElapsedMs(), kLimitMs);
  }
  stop.join();
  EXPECT_EQ(idle.Ask("QUERY CELL apple 2"), "no answer");
}

// ---- Killed clients ----

// The last step of a client before it is killed.
using Step = void (*)(ChunkClient& client);

const struct {
  const char* name;
  Step step;
} kSteps[] = {
    {"idle", [](ChunkClient&) {}},
    {"answered", [](ChunkClient& client) { EXPECT_EQ(client.Ask("CHUNK")[0], '1'); }},
    {"has-its-half",
     [](ChunkClient& client) {
       EXPECT_TRUE(Member(client->segment()->name, EmptyMember(client.chunk(), false)).Take());
     }},
    {"request-is-begun",
     [](ChunkClient& client) {
       EXPECT_EQ(
           KivWriteSharedMemChunk(nullptr, client->segment(), client.chunk(), 5, 0, 0, "QUERY"),
           KIV_ST_OK);
     }},
    {"request-is-sent", [](ChunkClient& client) { Send(client, kLongQuery); }},
    {"answer-is-there",
     [](ChunkClient& client) {
       Send(client, "QUERY CELL apple 5");
       const Member full(client->segment()->name, FullMember(client.chunk(), true));
       EXPECT_TRUE(full.Take(kLimitMs) && full.Give());
     }},
    {"holds-the-half",
     [](ChunkClient& client) {
       Send(client, kLongQuery);
       Read(client, 100);
     }},
    {"answer-is-under-way",
     [](ChunkClient& client) {
       Send(client, kLongQuery);
       Read(client, 2040);
     }},
    {"last-half-is-held",
     [](ChunkClient& client) {
       Send(client, kLongQuery);
       Read(client, 2040);
       Read(client, 2040);
       Read(client, 10);
     }},
    {"code-is-not-read",
     [](ChunkClient& client) {
       Send(client, "QUERY CELL apple 5");
       Read(client, 4 + 15);
     }},
    {"half-is-given-twice",
     [](ChunkClient& client) {
       Send(client, kLongQuery);
       Read(client, 100);
       EXPECT_TRUE(Member(client->segment()->name, EmptyMember(client.chunk(), true)).Give());
     }},
};

// The role of the client: makes a step and waits to be killed. Arguments: {pipe, step, done}
const RegisteredRole clientRole("client", [](const RoleArguments& arguments) {
  const InHost host;
  ChunkClient client(arguments[0].c_str());
  for (const auto& now : kSteps) {
    if (arguments[1] == now.name) now.step(client);
  }
  EXPECT_EQ(testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed(), false);
  const SharedSignal done(arguments[2]);
  done.Set();
  for (;;) KivSdSleep(nullptr, kLimitMs);
  return kRoleDone;
});

// Other clients, each with a chunk, that send queries all the time.
class Others {
 public:
  Others(const char* pipe, uint32_t count) {
    for (uint32_t at = 0; at < count; ++at) {
      threads_.emplace_back([this, pipe] {
        const InThread record;
        ChunkClient client(pipe);
        ++there_;
        while (!end_) {
          EXPECT_EQ(client.Ask("QUERY CELL apple 5"), "1 CELL apple 5: 5");
          EXPECT_EQ(client.Ask(kLongQuery), "1 " + LongAnswer());
          ++rounds_;
        }
      });
    }
    while (there_ != count) KivSdSleep(nullptr, 1);
  }
  ~Others() {
    end_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  Others(const Others&) = delete;
  Others& operator=(const Others&) = delete;

  // Waits until each has made progress.
  void AwaitRounds() const {
    const TimeLimit limit(kLimitMs);
    for (const uint32_t before = rounds_; rounds_ < before + 8;) {
      ASSERT_FALSE(limit.passed());
      KivSdSleep(nullptr, 1);
    }
  }

 private:
  std::atomic<uint32_t> there_{0};
  std::atomic<uint32_t> rounds_{0};
  std::atomic<bool> end_{false};
  std::vector<std::thread> threads_;
};

TEST_F(SegmentServerTest, PassesOnAKilledClientsChunkFromEveryStep) {
  Others others(server_.pipe(), 4);
  uint32_t lost = 0;
  for (const auto& now : kSteps) {
    SCOPED_TRACE(now.name);
    const SharedSignal done(UniqueName("done"));
    const ChildProcess client("client", {server_.pipe(), now.name, done.name()});
    done.Await();
    SegmentClient next;
    ASSERT_TRUE(next.Open(server_.pipe(), 0));
    ASSERT_EQ(next.AskForChunk(), Given::kNone);
    client.Kill();
    ASSERT_TRUE(next.AwaitChunk(kLimitMs));
    ExpectBeginning(next.chunk());
    Reply reply = {};
    EXPECT_TRUE(next.Ask(kLongQuery, &reply));
    EXPECT_TRUE(reply.text == LongAnswer());
    EXPECT_EQ(next.code(), FinalCode::kDone);
    others.AwaitRounds();
    next.Leave();
    AwaitLost(++lost);
  }
}

// The server must notice the end of the client before the ten time-outs for a live client, which
// would exceed the limit.
TEST_F(SegmentServerTest, ChecksForAKilledClientAfterOneTimeOut) {
  server_.SetTimeout(kLimitMs / 8);
  const SharedSignal done(UniqueName("done"));
  const ChildProcess client("client", {server_.pipe(), "holds-the-half", done.name()});
  done.Await();
  EXPECT_EQ(server_.takenMask(), 1u);
  client.Kill();
  AwaitTaken(0, false);
}

// ---- Live clients that do not do their part ----

TEST_F(SegmentServerTest, ReservesTheChunkOfAClientThatReadsNoAnswer) {
  Others others(server_.pipe(), 4);
  ChunkClient client(server_.pipe());
  const int32_t chunk = client.chunk();
  Send(client, kLongQuery);
  // The server gives up after some time-outs, and answers on the pipe.
  Reply reply = {};
  EXPECT_TRUE(client->pipe()->Ask("QUERY CELL apple 5", &reply));
  EXPECT_EQ(reply.text, "CELL apple 5: 5");
  EXPECT_NE(server_.takenMask() >> chunk & 1, 0u);
  // The server no longer reads from the chunk.
  Send(client, "QUERY CELL apple 6");
  EXPECT_TRUE(client->pipe()->Ask("QUERY CELL apple 7", &reply));
  EXPECT_TRUE(IsGiven(server_.segment(), FullMember(chunk, false)));
  EXPECT_EQ(OverPipe("SEGMENT"), "ERROR all chunks are taken; ask again later");
  others.AwaitRounds();
  EXPECT_EQ(client->AskForChunk(), Given::kOne);
  EXPECT_EQ(client.chunk(), chunk);
  EXPECT_EQ(client.Ask(kLongQuery), "1 " + LongAnswer());
  EXPECT_EQ(server_.service()->lost.load(), 0u);
}

// The server cannot find the client's next message and stops serving it. The client may write into
// its chunk until it has gone.
TEST_F(SegmentServerTest, ReservesTheChunkOfARefusedClientUntilItHasGone) {
  constexpr uint32_t kTestGoodbyeMs = 20;
  server_.service()->goodbyeMs = kTestGoodbyeMs;
  const TimeLimit limit(kLimitMs);
  auto client = std::make_unique<RawPipe>();
  Reply reply = {};
  std::string_view told;
  ASSERT_TRUE(client->Open(server_.pipe(), 0));
  ASSERT_TRUE(client->Ask("SEGMENT", &reply));
  ASSERT_TRUE(reply.ok);
  ASSERT_TRUE(client->Write("\xFF\xFF\xFF\xFFQUERY"));
  ASSERT_EQ(client->Receive({.limit = &limit, .stop = nullptr}, &told), Received::kMessage);
  EXPECT_TRUE(told.starts_with("ERROR the request is too long"));
  KivSdSleep(nullptr, 10 * kTestGoodbyeMs);
  EXPECT_EQ(server_.takenMask(), 1u);
  client.reset();
  AwaitTaken(0, false);
  ExpectBeginning(0);
}

TEST_F(SegmentServerTest, EndsWhileARefusedClientKeepsItsChunk) {
  server_.service()->goodbyeMs = 20;
  RawPipe client;
  Reply reply = {};
  ASSERT_TRUE(client.Open(server_.pipe(), 0));
  ASSERT_TRUE(client.Ask("SEGMENT", &reply));
  ASSERT_TRUE(client.Write("\xFF\xFF\xFF\xFFQUERY"));
  server_.Stop();
}

// ---- Hostile clients ----

class Nonsense {
 public:
  uint32_t Next() {
    state_ = state_ * 1664525u + 1013904223u;
    return state_ >> 8;
  }
  uint32_t Below(uint32_t end) { return Next() % end; }

 private:
  uint32_t state_ = 12345;
};

constexpr uint32_t kOddWords[] = {0,    0,    1,    2,    8,          100,        2039,      2040,
                                  2041, 2048, 4096, 5000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

// Writes random bytes and sometimes a command into halves, and takes and gives the chunks'
// semaphores at random, for a number of rounds.
void BeHostile(const std::string& segment, int32_t first, int32_t end, uint32_t rounds) {
  const AreaView area(segment);
  Nonsense some;
  for (uint32_t round = 0; round < rounds; ++round) {
    const int chunk = first + static_cast<int>(some.Below(static_cast<uint32_t>(end - first)));
    for (const bool half : {true, false}) {
      unsigned char* bytes = area.half(chunk, half);
      for (uint32_t at = 0; at < 2048; ++at) {
        bytes[at] = static_cast<unsigned char>(some.Below(3) == 0 ? 0 : some.Next());
      }
      const uint32_t header[] = {kOddWords[some.Below(std::size(kOddWords))],
                                 kOddWords[some.Below(std::size(kOddWords))]};
      std::memcpy(bytes, header, sizeof header);
      if (some.Below(2) == 0) std::memcpy(bytes + 8, "QUERY TOP number 500", 21);
    }
    for (int time = 0; time < 4; ++time) {
      const int members[] = {FullMember(chunk, true), EmptyMember(chunk, true),
                             FullMember(chunk, false), EmptyMember(chunk, false)};
      const Member member(segment, members[some.Below(4)]);
      if (some.Below(3) != 0) {
        member.Give();
      } else {
        member.Take();
      }
    }
    if (some.Below(4) == 0) KivSdSleep(nullptr, 1);
  }
}

TEST_F(SegmentServerTest, HostileClientsDoNotHarmOthers) {
  Others others(server_.pipe(), 4);
  for (int time = 0; time < 2; ++time) {
    ChunkClient hostile(server_.pipe());
    const int32_t chunk = hostile.chunk();
    for (int turn = 0; turn < 3; ++turn) {
      BeHostile(server_.segment(), chunk, chunk + 1, 100);
      ASSERT_EQ(hostile->AskForChunk(), Given::kOne);
      ASSERT_EQ(hostile.chunk(), chunk);
    }
    others.AwaitRounds();
    EXPECT_EQ(hostile.Ask(kLongQuery), "1 " + LongAnswer());
    BeHostile(server_.segment(), chunk, chunk + 1, 50);
    hostile.LeaveByPipe();
    AwaitTaken(chunk, false);
    ExpectBeginning(chunk);
    ChunkClient next(server_.pipe());
    EXPECT_EQ(next.Ask(kLongQuery), "1 " + LongAnswer());
  }
  EXPECT_EQ(server_.service()->failed.load(), false);
}

// The hostile client also writes into the chunks of others. Those clients may get wrong answers,
// but the server must survive.
TEST_F(SegmentServerTest, SurvivesNonsenseInTheWholeArea) {
  {
    ChunkClient hostile(server_.pipe());
    std::vector<std::unique_ptr<ChunkClient>> clients;
    clients.reserve(4);
    for (int at = 0; at < 4; ++at) {
      clients.push_back(std::make_unique<ChunkClient>(server_.pipe()));
    }
    BeHostile(server_.segment(), 0, 5, 1000);
    for (auto& client : clients) client->LeaveByPipe();
    hostile.LeaveByPipe();
    for (int32_t chunk = 0; chunk < 5; ++chunk) AwaitTaken(chunk, false);
  }
  for (int32_t chunk = 0; chunk < 5; ++chunk) ExpectBeginning(chunk);
  Others others(server_.pipe(), 5);
  others.AwaitRounds();
  EXPECT_EQ(server_.service()->failed.load(), false);
}

}  // namespace
}  // namespace cellhost
