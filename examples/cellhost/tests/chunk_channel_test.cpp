// Requests and answers through a chunk, with both ends in one process: transfers, waits, messages
// that break the protocol, and resetting a chunk from every state.
#include "channel/chunk_channel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "channel/protocol.h"
#include "kivsdu/kivsdu.h"
#include "support/segment.h"
#include "support/waiting.h"

namespace cellhost {
namespace {

using kiv::test::AreaView;
using kiv::test::EmptyMember;
using kiv::test::FullMember;
using kiv::test::IsGiven;
using kiv::test::kLimitMs;
using kiv::test::kShortMs;
using kiv::test::Member;
using kiv::test::Pattern;
using kiv::test::SegmentEnd;
using kiv::test::UniqueName;

constexpr int32_t kChunk = 3;
constexpr uint32_t kServer = 1;
constexpr uint32_t kClient = 0;

// Selects the half that the client writes, or the one that the server writes.
constexpr bool kRequests = false;
constexpr bool kAnswers = true;

// Waits for a number of time-outs.
class Times final : public ChunkWatch {
 public:
  explicit Times(uint32_t times) : left_(times) {}
  bool KeepsWaiting() override {
    ++asked_;
    return left_-- != 0;
  }
  uint32_t asked() const { return asked_; }

  // Waits until KeepsWaiting is called once more.
  void AwaitAsked() const {
    for (const uint32_t before = asked_; asked_ == before;) KivSdSleep(nullptr, 1);
  }

 private:
  uint32_t left_;
  std::atomic<uint32_t> asked_{0};
};

struct Answer {
  Carried carried;
  std::string text;
  uint32_t code;
};

// Both ends of a segment and their channels in one of its chunks.
class ChunkChannelTest : public testing::Test {
 protected:
  ChunkChannelTest() {
    server_.Use(serverEnd_, kChunk);
    client_.Use(clientEnd_, kChunk);
  }

  Answer ReceiveAnswer(uint32_t patience = kPatience) {
    HostArray<char> text("test");
    Times watch(patience);
    Answer answer = {};
    answer.carried = client_.ReceiveAnswer(&watch, &text, &answer.code);
    if (text.count() != 0) answer.text.assign(text.data(), text.count());
    return answer;
  }

  Carried SendRequest(std::string_view text) {
    Times watch(0);
    return client_.SendRequest(text, &watch);
  }

  Carried SendAnswer(std::string_view text, uint32_t code, uint32_t patience = kPatience) {
    Times watch(patience);
    return server_.SendAnswer(text, code, &watch);
  }

  // Receives a request; anything else fails the test.
  std::string Request() {
    std::string_view text;
    EXPECT_EQ(server_.ReceiveRequest(&text), Carried::kDone);
    return std::string(text);
  }

  // Sends an answer from the server to the client and expects it to arrive.
  void ExpectAnswer(const std::string& text, uint32_t code) {
    std::thread server([&] { EXPECT_EQ(SendAnswer(text, code), Carried::kDone); });
    const Answer answer = ReceiveAnswer();
    server.join();
    EXPECT_EQ(answer.carried, Carried::kDone);
    EXPECT_TRUE(answer.text == text);
    EXPECT_EQ(answer.code, code);
  }

  // Sends a request to the server and an answer back.
  void ExpectRoundTrip() {
    EXPECT_EQ(SendRequest("QUERY"), Carried::kDone);
    EXPECT_EQ(Request(), "QUERY");
    ExpectAnswer(Pattern(5000), 2);
  }

  // Expects the chunk's semaphores in their initial state.
  void ExpectBeginning(int32_t chunk) {
    for (const bool half : {kRequests, kAnswers}) {
      EXPECT_FALSE(IsGiven(name_, FullMember(chunk, half))) << "chunk " << chunk;
      EXPECT_TRUE(IsGiven(name_, EmptyMember(chunk, half))) << "chunk " << chunk;
    }
  }

  static constexpr uint32_t kPatience = kLimitMs / kShortMs;

  const std::string name_ = UniqueName("channel");
  SegmentEnd serverEnd_{name_, kServer, kShortMs};
  SegmentEnd clientEnd_{name_, kClient, kShortMs};
  ChunkChannel server_;
  ChunkChannel client_;
};

// ---- What arrives ----

TEST_F(ChunkChannelTest, CarriesRequestsOfUpToAHalf) {
  for (const size_t length : {0u, 1u, 100u, 2038u, 2039u}) {
    const std::string text = Pattern(length);
    EXPECT_EQ(SendRequest(text), Carried::kDone);
    EXPECT_TRUE(Request() == text) << length;
  }
  ExpectBeginning(kChunk);
}

TEST_F(ChunkChannelTest, CarriesAnswersOfAllLengthsWithTheirCodes) {
  uint32_t code = 0;
  for (const size_t length : {0u, 1u, 2035u, 2036u, 2037u, 4075u, 4076u, 4077u, 6116u, 300'000u}) {
    SCOPED_TRACE(length);
    ExpectAnswer(Pattern(length, static_cast<uint32_t>(length)), ++code);
    ExpectBeginning(kChunk);
  }
}

TEST_F(ChunkChannelTest, SendsAnAnswerAsLengthAndText) {
  std::thread server([&] { SendAnswer("stored", 1); });
  EXPECT_TRUE(Member(name_, FullMember(kChunk, kAnswers)).Take(kLimitMs));
  const AreaView area(name_);
  EXPECT_EQ(area.code(kChunk, kAnswers), 0u);
  EXPECT_EQ(area.payload(kChunk, kAnswers), std::string("\6\0\0\0stored", 10));
  EXPECT_TRUE(Member(name_, EmptyMember(kChunk, kAnswers)).Give());
  server.join();
  EXPECT_EQ(area.code(kChunk, kAnswers), 1u);
  EXPECT_EQ(area.length(kChunk, kAnswers), 0u);
}

TEST_F(ChunkChannelTest, SendsARequestAsAString) {
  EXPECT_EQ(SendRequest("STATS"), Carried::kDone);
  const AreaView area(name_);
  EXPECT_EQ(area.code(kChunk, kRequests), 0u);
  EXPECT_EQ(area.payload(kChunk, kRequests), std::string("STATS\0", 6));
}

// ---- Waiting ----

TEST_F(ChunkChannelTest, WaitsForARequestOnce) {
  std::string_view text;
  const kiv::test::Stopwatch watch;
  EXPECT_EQ(server_.ReceiveRequest(&text), Carried::kNothing);
  EXPECT_GE(watch.ElapsedMs(), kiv::test::kShortAtLeastMs);
  ExpectRoundTrip();
}

// The server waits for a half for each piece, and for the code.
TEST_F(ChunkChannelTest, ContinuesAnAnswerAfterTimeOuts) {
  clientEnd_->timeoutMs = kLimitMs;
  const std::string text = Pattern(5000);
  Times watch(kPatience);
  std::thread server([&] { EXPECT_EQ(server_.SendAnswer(text, 3, &watch), Carried::kDone); });
  std::string got;
  for (const uint32_t piece : {2040u, 2040u, 924u}) {
    watch.AwaitAsked();
    got += clientEnd_.Read(kChunk, piece);
  }
  uint32_t code = 0;
  EXPECT_EQ(KivReadSharedMemChunkCode(nullptr, clientEnd_, kChunk, &code), KIV_ST_OK);
  server.join();
  EXPECT_EQ(code, 3u);
  EXPECT_TRUE(got.substr(4) == text);
}

TEST_F(ChunkChannelTest, RepeatsACodeAfterATimeOut) {
  Times watch(kPatience);
  std::thread server([&] { EXPECT_EQ(server_.SendAnswer("", 2, &watch), Carried::kDone); });
  watch.AwaitAsked();  // the length was sent, the code waits
  const Answer answer = ReceiveAnswer();
  server.join();
  EXPECT_EQ(answer.carried, Carried::kDone);
  EXPECT_EQ(answer.code, 2u);
}

TEST_F(ChunkChannelTest, KeepsWaitingForAnAnswer) {
  HostArray<char> text("test");
  Times watch(kPatience);
  uint32_t code = 0;
  std::thread client(
      [&] { EXPECT_EQ(client_.ReceiveAnswer(&watch, &text, &code), Carried::kDone); });
  watch.AwaitAsked();
  EXPECT_EQ(SendAnswer(Pattern(10), 1), Carried::kDone);
  client.join();
  EXPECT_EQ(std::string(text.data(), text.count()), Pattern(10));
  EXPECT_EQ(code, 1u);
}

TEST_F(ChunkChannelTest, GivesUpWithoutAnOtherEnd) {
  EXPECT_EQ(ReceiveAnswer(2).carried, Carried::kBroken);
  EXPECT_EQ(SendAnswer(Pattern(5000), 1, 2), Carried::kBroken);  // nobody reads the first half
  EXPECT_EQ(SendRequest("one"), Carried::kDone);
  EXPECT_EQ(SendRequest("two"), Carried::kBroken);
}

// ---- Nonsense ----

// Writes a message into the client's half and sets the semaphores by the rules.
void Say(const std::string& name, uint32_t code, uint32_t length, const std::string& payload) {
  EXPECT_TRUE(Member(name, EmptyMember(kChunk, kRequests)).Take(kLimitMs));
  const AreaView area(name);
  unsigned char* half = area.half(kChunk, kRequests);
  std::memcpy(half, &code, sizeof code);
  std::memcpy(half + 4, &length, sizeof length);
  std::memset(half + 8, 0, 2040);
  std::copy(payload.begin(), payload.end(), half + 8);
  EXPECT_TRUE(Member(name, FullMember(kChunk, kRequests)).Give());
}

TEST_F(ChunkChannelTest, DiscardsNonsenseAndGoesOn) {
  const std::string noZero(2040, 'q');
  const struct {
    uint32_t code, length;
    std::string payload;
  } cases[] = {{7, 0, ""},         {7, 100, "data"},       {0xFFFFFFFD, 5, ""},
               {0, 100, "behind"}, {0, 0xFFFFFFFF, ""},    {0, 0x80000000, "q"},
               {0, 2041, noZero},  {0, 0xFFFFFFFF, noZero}};
  for (const auto& now : cases) {
    SCOPED_TRACE(testing::Message() << now.code << ", " << now.length << " bytes");
    Say(name_, now.code, now.length, now.payload);
    std::string_view text;
    EXPECT_EQ(server_.ReceiveRequest(&text), Carried::kNonsense);
    ExpectBeginning(kChunk);
    ExpectRoundTrip();
  }
}

TEST_F(ChunkChannelTest, AcceptsAStringThatEndsWithItsMessage) {
  Say(name_, 0, 2040, std::string(2040, 'q'));
  EXPECT_EQ(Request(), std::string(2040, 'q'));
  Say(name_, 0, 4, "STOP and what lies there");
  EXPECT_EQ(Request(), "STOP");
  Say(name_, 0, 0, "nothing");
  EXPECT_EQ(Request(), "");
  ExpectRoundTrip();
}

TEST_F(ChunkChannelTest, IsBrokenBySemaphoresReleasedTwice) {
  // Both ends own the half, so that the server cannot release it.
  EXPECT_EQ(SendRequest("one"), Carried::kDone);
  EXPECT_TRUE(Member(name_, EmptyMember(kChunk, kRequests)).Give());
  std::string_view text;
  EXPECT_EQ(server_.ReceiveRequest(&text), Carried::kBroken);
  EXPECT_EQ(server_.ReceiveRequest(&text), Carried::kBroken);
  EXPECT_TRUE(server_.Reset());
  EXPECT_TRUE(Member(name_, FullMember(kChunk, kAnswers)).Give());
  Times watch(kPatience);
  EXPECT_EQ(server_.SendAnswer("one", 1, &watch), Carried::kBroken);
  EXPECT_EQ(server_.SendAnswer("one", 1, &watch), Carried::kBroken);
  EXPECT_EQ(watch.asked(), 0u);  // fails without waiting
  EXPECT_TRUE(server_.Reset());
  ExpectRoundTrip();
}

TEST_F(ChunkChannelTest, DetectsInvalidAnswers) {
  // A code instead of data.
  EXPECT_EQ(KivWriteSharedMemChunkCode(nullptr, serverEnd_, kChunk, 1), KIV_ST_OK);
  EXPECT_EQ(ReceiveAnswer().carried, Carried::kNonsense);
  // Longer than any answer.
  EXPECT_EQ(serverEnd_.Write(kChunk, std::string("\1\0\0\1", 4)), KIV_ST_OK);
  EXPECT_EQ(ReceiveAnswer().carried, Carried::kNonsense);
  // A code in the middle.
  EXPECT_TRUE(server_.Reset());
  EXPECT_EQ(serverEnd_.Write(kChunk, std::string("\x10\0\0\0", 4)), KIV_ST_OK);
  std::thread server([&] {
    while (KivWriteSharedMemChunkCode(nullptr, serverEnd_, kChunk, 1) != KIV_ST_OK) {
      serverEnd_->writing[kChunk].code = 0;
    }
  });
  EXPECT_EQ(ReceiveAnswer().carried, Carried::kNonsense);
  server.join();
}

// ---- Reset ----

void SetMember(const std::string& name, int member, bool given) {
  const Member semaphore(name, member);
  semaphore.Take();
  if (given) {
    EXPECT_TRUE(semaphore.Give());
  }
}

// Sets the four semaphores of a chunk, one bit each.
void SetChunk(const std::string& name, int chunk, unsigned state) {
  for (const bool half : {kRequests, kAnswers}) {
    SetMember(name, FullMember(chunk, half), (state & 1) != 0);
    SetMember(name, EmptyMember(chunk, half), (state & 2) != 0);
    state >>= 2;
  }
}

unsigned StateOf(const std::string& name, int chunk) {
  unsigned state = 0;
  for (const bool half : {kAnswers, kRequests}) {
    state = state << 2 | (IsGiven(name, EmptyMember(chunk, half)) ? 2u : 0u) |
            (IsGiven(name, FullMember(chunk, half)) ? 1u : 0u);
  }
  return state;
}

TEST_F(ChunkChannelTest, ResetsFromEveryStateWithoutTouchingOtherChunks) {
  for (unsigned state = 0; state < 16; ++state) {
    SCOPED_TRACE(state);
    for (int chunk = 0; chunk < 5; ++chunk) {
      SetChunk(name_, chunk, (state + static_cast<unsigned>(chunk)) % 16);
    }
    SetChunk(name_, kChunk, state);
    SetMember(name_, 0, state % 2 == 0);
    for (int32_t chunk = 0; chunk < 5; ++chunk) {
      serverEnd_->reading[chunk] = {7, 8, 9};
      serverEnd_->writing[chunk] = {KIV_CHUNK_NOT_GIVEN, 8, 9};
    }
    EXPECT_TRUE(server_.Reset());
    ExpectBeginning(kChunk);
    client_.Use(clientEnd_, kChunk);
    ExpectRoundTrip();
    for (int32_t chunk = 0; chunk < 5; ++chunk) {
      if (chunk == kChunk) continue;
      EXPECT_EQ(StateOf(name_, chunk), (state + static_cast<unsigned>(chunk)) % 16);
      EXPECT_EQ(serverEnd_->reading[chunk].code, 7u);
      EXPECT_EQ(serverEnd_->writing[chunk].offset, 9u);
    }
    EXPECT_EQ(IsGiven(name_, 0), state % 2 == 0);
  }
}

}  // namespace
}  // namespace cellhost
