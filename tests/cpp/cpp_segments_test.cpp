// Segments of the C++ layer: messages, and a chunk after a dead peer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <system_error>
#include <utility>

#include "kivsdu/kivsdu.hpp"
#include "support/import_patch.h"
#include "support/waiting.h"

namespace {

using kiv::test::ScriptedImport;
using kivsdu::Chunk;
using kivsdu::ErrorCode;
using kivsdu::Segment;
using kivsdu::Thread;

constexpr std::chrono::milliseconds kShort(kiv::test::kShortMs);
constexpr std::chrono::milliseconds kLimit(kiv::test::kLimitMs);

class CppSegment : public testing::Test {
 protected:
  const std::string name_ = kiv::test::UniqueName("cpp-segment");
  Segment server_{name_.c_str(), 1, kLimit};
  Segment client_{name_.c_str(), 0, kLimit};
};

TEST_F(CppSegment, CarriesTextsAndCodes) {
  Chunk chunk = Chunk::Take(server_);
  ASSERT_TRUE(chunk.IsOpen());
  EXPECT_EQ(chunk.Index(), 0);
  Chunk peer = Chunk::Of(client_, chunk.Index());
  peer.WriteText("sum");
  EXPECT_EQ(chunk.ReadText(), "sum");
  chunk.WriteText("");
  EXPECT_EQ(peer.ReadText(), "");
  chunk.WriteCode(7);
  EXPECT_EQ(peer.ReadCode(), 7u);
}

TEST_F(CppSegment, CarriesMoreThanAHalf) {
  const std::string sent(3 * KIV_SEGMENT_PAYLOAD_BYTES, 'x');
  const Thread writer([&] {
    Chunk::Of(client_, 2).Write(sent.data(), static_cast<uint32_t>(sent.size()));
    Chunk::Of(client_, 2).WriteCode(5);
  });
  std::string received(sent.size(), '\0');
  Chunk chunk = Chunk::Of(server_, 2);
  EXPECT_EQ(chunk.Read(received.data(), static_cast<uint32_t>(received.size())), 0u);
  EXPECT_EQ(received, sent);
  char byte = 0;
  EXPECT_EQ(chunk.Read(&byte, 1), 5u);
}

TEST_F(CppSegment, ReturnsItsChunksWithTheirOwners) {
  {
    Chunk first = Chunk::Take(server_);
    const Chunk second = Chunk::Take(server_);
    EXPECT_EQ(second.Index(), 1);
    const Chunk moved(std::move(first));
    EXPECT_FALSE(first.IsOpen());
    EXPECT_EQ(server_.Get()->takenMask, 3u);
  }
  EXPECT_EQ(server_.Get()->takenMask, 0u);
  Chunk all[KIV_SEGMENT_CHUNKS];
  for (Chunk& chunk : all) chunk = Chunk::Take(server_);
  EXPECT_FALSE(Chunk::Take(server_).IsOpen());
}

TEST_F(CppSegment, RefusesAPeerThatAnnouncesTooMuch) {
  Chunk chunk = Chunk::Of(server_, 0);
  Chunk peer = Chunk::Of(client_, 0);
  // The server reads the second half of the chunk, which the client writes.
  peer.WriteText("ab");
  const uint32_t tooMuch = 5000;
  std::memcpy(static_cast<char*>(client_.Get()->buffer) + KIV_SEGMENT_HALF_BYTES + 4, &tooMuch,
              sizeof(tooMuch));
  ErrorCode error;
  EXPECT_EQ(chunk.ReadText(error), "");
  EXPECT_EQ(error.Status(), KIV_CHUNK_OVERRUN);
  chunk.Reset();
  peer.Reset();
  peer.WriteText("cd");
  EXPECT_EQ(chunk.ReadText(), "cd");
  uint32_t code = 0;
  peer.WriteCode(7);
  EXPECT_EQ(chunk.ReadText(&code), "");
  EXPECT_EQ(code, 7u);
  peer.WriteText("");
  EXPECT_EQ(chunk.ReadText(&code), "");
  EXPECT_EQ(code, 0u);
}

TEST(CppSegmentFailure, OfAPeerThatDoesNotAnswerIsATimeout) {
  const std::string name = kiv::test::UniqueName("cpp-segment-alone");
  Segment segment(name.c_str(), 1, kShort);
  Chunk chunk = Chunk::Take(segment);
  ErrorCode error;
  chunk.ReadText(error);
  EXPECT_EQ(error, std::errc::timed_out);
  chunk.ReadCode(error);
  EXPECT_EQ(error, std::errc::timed_out);
  char byte = 0;
  EXPECT_THROW(chunk.Read(&byte, 1), kivsdu::Failure);

  // The first message waits in the half. The second finds no room, and the code blocks the chunk.
  chunk.WriteText("lost");
  chunk.WriteText("lost too", error);
  EXPECT_EQ(error, std::errc::timed_out);
  chunk.WriteCode(3, error);
  EXPECT_EQ(error, std::errc::timed_out);
  EXPECT_EQ(segment.Get()->writing[0].code, 3u);
  EXPECT_THROW(chunk.WriteText("blocked"), kivsdu::Failure);

  chunk.Reset();
  Segment next(name.c_str(), 0, kShort);
  chunk.WriteText("fresh");
  EXPECT_EQ(Chunk::Of(next, 0).ReadText(), "fresh");
}

TEST(CppSegmentFailure, OfAPeerThatDiedWithTheChunkLockIsRepaired) {
  const std::string name = kiv::test::UniqueName("cpp-segment-locked");
  Segment segment(name.c_str(), 1, kShort);
  ASSERT_EQ(KivSdShSemSetRequest(nullptr, 0, segment.Get()->semaphores, 0), KIV_ST_OK);
  EXPECT_THROW(Chunk::Take(segment), kivsdu::Failure);
  segment.ReleaseChunkLock();
  EXPECT_TRUE(Chunk::Take(segment).IsOpen());
}

TEST(CppSegmentFailure, OfTheSystemLeavesNothingBehind) {
  const std::string name = kiv::test::UniqueName("cpp-segment-fails");
  const ScriptedImport failing("CreateFileMappingA", {.result = 0, .error = 8});
  EXPECT_THROW(Segment(name.c_str(), 1, kShort), kivsdu::Failure);
  ErrorCode error;
  const Segment segment(name.c_str(), 1, kShort, error);
  EXPECT_EQ(error.Status(), KIV_ST_SHARED_MEM_ALLOC);
  EXPECT_EQ(error.OsError(), 8u);
  const Segment otherKind(name.c_str(), 2, kShort, error);
  EXPECT_EQ(error.Status(), KIV_ST_SEGMENT_NAME);
}

}  // namespace
