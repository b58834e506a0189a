// The chunks of a shared memory segment with both ends in one process: the shared area and the
// semaphores after each step, and the failures that block a chunk.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/segment.h"
#include "support/threads.h"
#include "support/waiting.h"

namespace {

using kiv::test::AreaView;
using kiv::test::Context;
using kiv::test::EmptyMember;
using kiv::test::FullMember;
using kiv::test::GuardedBytes;
using kiv::test::IsGiven;
using kiv::test::kLimitMs;
using kiv::test::kLockMember;
using kiv::test::kShortAtLeastMs;
using kiv::test::kShortMs;
using kiv::test::Member;
using kiv::test::OnThreads;
using kiv::test::Pattern;
using kiv::test::SegmentEnd;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;

constexpr uint32_t kLatched = 0xFFFFFFFF;
constexpr uint32_t kOverrun = 0xFFFFFFFE;
constexpr uint32_t kNotGiven = 0xFFFFFFFD;
constexpr uint32_t kUntouched = 4711;
constexpr int32_t kUntouchedIndex = 4711;
constexpr uint32_t kAtOnce = 0;
constexpr bool kFirst = true;
constexpr bool kSecond = false;
constexpr bool kOpen = false;  // end flag of a write: leave the half open
constexpr bool kEnd = true;
constexpr bool kWhole = false;  // split flag of a write: do not split the data
constexpr bool kSplit = true;

// Both ends of a segment. The time-outs are 0, so that nothing waits.
class Segment : public testing::Test {
 protected:
  SegmentEnd& End(uint32_t kind) { return kind == 1 ? one_ : zero_; }

  uint32_t Read(SegmentEnd& end, int32_t chunk, uint32_t length, void* buffer,
                uint32_t* code = nullptr) {
    return KivReadSharedMemChunk(ctx_, end, chunk, length, 0, code, buffer);
  }

  std::string ReadString(SegmentEnd& end, int32_t chunk, uint32_t length = 0) {
    GuardedBytes buffer(KIV_SEGMENT_HALF_BYTES);
    ctx_.Spoil();
    EXPECT_EQ(KivReadSharedMemChunk(ctx_, end, chunk, length, 1, nullptr, buffer.data()),
              KIV_ST_OK);
    EXPECT_TRUE(ctx_.IsUntouched());
    size_t count = buffer.size();
    while (count > 0 && buffer.IsAll(kiv::test::kSpoilt, count - 1, count)) --count;
    return std::string(buffer.text(), count);
  }

  const std::string name_ = UniqueName("segment");
  Context ctx_;
  SegmentEnd one_{name_, 1, kAtOnce};
  SegmentEnd zero_{name_, 0, kAtOnce};
  AreaView area_{name_};
};

// ---- The shared area and the set ----

TEST_F(Segment, BeginsZeroedWithAFreeLockAndEveryHalfEmpty) {
  EXPECT_EQ(area_.all(), std::string(20480, '\0'));
  for (int member = 0; member <= 20; ++member) {
    EXPECT_EQ(IsGiven(name_, member), member % 2 == 0) << member;
    Member semaphore(name_, member);
    if (member % 2 != 0) {
      EXPECT_TRUE(semaphore.Give());
    }
    EXPECT_FALSE(semaphore.Give()) << member << " must not hold more than 1";
  }
  EXPECT_FALSE(kiv::test::HasMember(name_, 21));
}

TEST_F(Segment, PutsEachEndsDataIntoItsOwnHalfOfTheChunk) {
  std::string expected(20480, '\0');
  for (const uint32_t kind : {1u, 0u}) {
    for (int chunk = 0; chunk < 5; ++chunk) {
      SCOPED_TRACE(testing::Message() << "kind " << kind << ", chunk " << chunk);
      const bool first = kind == 1;
      const std::string data = Pattern(1000, static_cast<uint32_t>(2 * chunk) + kind);
      ASSERT_EQ(End(kind).Write(chunk, data), KIV_ST_OK);
      const size_t half = static_cast<size_t>(4096 * chunk + (first ? 0 : 2048));
      expected.replace(half, 8, std::string("\0\0\0\0\xE8\x03\0\0", 8));
      expected.replace(half + 8, data.size(), data);
      EXPECT_TRUE(area_.all() == expected);
      EXPECT_TRUE(IsGiven(name_, FullMember(chunk, first)));
      EXPECT_FALSE(IsGiven(name_, EmptyMember(chunk, first)));
    }
  }
  for (const uint32_t kind : {1u, 0u}) {
    for (int chunk = 0; chunk < 5; ++chunk) {
      const bool first = kind == 1;
      EXPECT_EQ(End(1 - kind).Read(chunk, 1000),
                Pattern(1000, static_cast<uint32_t>(2 * chunk) + kind));
      EXPECT_FALSE(IsGiven(name_, FullMember(chunk, first)));
      EXPECT_TRUE(IsGiven(name_, EmptyMember(chunk, first)));
    }
  }
  EXPECT_TRUE(area_.all() == expected) << "reading changes nothing";
}

TEST_F(Segment, PutsCodesOnlyIntoTheHeader) {
  std::string expected(20480, '\0');
  for (const uint32_t kind : {1u, 0u}) {
    for (int chunk = 0; chunk < 5; ++chunk) {
      CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, End(kind), chunk, 0x87654321), KIV_ST_OK);
      const size_t half = static_cast<size_t>(4096 * chunk + (kind == 1 ? 0 : 2048));
      expected.replace(half, 8, std::string("\x21\x43\x65\x87\0\0\0\0", 8));
      EXPECT_TRUE(area_.all() == expected);
      uint32_t code = 0;
      CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, End(1 - kind), chunk, &code), KIV_ST_OK);
      EXPECT_EQ(code, 0x87654321u);
      EXPECT_TRUE(IsGiven(name_, EmptyMember(chunk, kind == 1)));
      EXPECT_FALSE(IsGiven(name_, FullMember(chunk, kind == 1)));
    }
  }
}

// ---- Arguments ----

TEST_F(Segment, RefusesNullPointersAndMissingChunksAndRecordsNothing) {
  char byte = 'a';
  uint32_t code = kUntouched;
  int32_t chunk = kUntouchedIndex;
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, nullptr, &chunk), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, one_, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, nullptr, 0), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, nullptr, 0, 1, 1, 1, &byte), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 1, 1, 1, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 0, 1, 1, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, nullptr, 0, 1), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, nullptr, 0, 1, 0, &code, &byte), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, one_, 0, 1, 0, &code, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, one_, 0, 0, 0, &code, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, nullptr, 0, &code), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, one_, 0, nullptr), KIV_ST_ARGUMENT);
  for (const int32_t none : {-1, 5, 6, 31, 32, INT32_MAX, INT32_MIN}) {
    CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, one_, none), KIV_ST_ARGUMENT);
    CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, none, 1, 1, 1, &byte), KIV_ST_ARGUMENT);
    CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, none, 0, 1, 1, &byte), KIV_ST_ARGUMENT);
    CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, none, 1), KIV_ST_ARGUMENT);
    CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, one_, none, 1, 0, &code, &byte),
                 KIV_ST_ARGUMENT);
    CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, one_, none, &code), KIV_ST_ARGUMENT);
  }
  EXPECT_EQ(code, kUntouched);
  EXPECT_EQ(chunk, kUntouchedIndex);
  for (int member = 0; member <= 20; ++member) EXPECT_EQ(IsGiven(name_, member), member % 2 == 0);
}

TEST_F(Segment, RefusesNullPointersEvenOnABlockedChunk) {
  uint32_t code = kUntouched;
  one_->writing[0].code = one_->reading[0].code = kNotGiven;
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 1, 1, 1, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, one_, 0, 1, 0, &code, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, one_, 0, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 1, 1, 1, "x"), kLatched);
  EXPECT_EQ(code, kUntouched);
}

TEST_F(Segment, WorksWithoutAContext) {
  int32_t chunk = kUntouchedIndex;
  char bytes[3] = {};
  uint32_t code = 0;
  EXPECT_EQ(KivGetSharedMemChunk(nullptr, one_, &chunk), KIV_ST_OK);
  EXPECT_EQ(KivWriteSharedMemChunk(nullptr, one_, chunk, 3, 1, 0, "abc"), KIV_ST_OK);
  EXPECT_EQ(KivReadSharedMemChunk(nullptr, zero_, chunk, 3, 0, nullptr, bytes), KIV_ST_OK);
  EXPECT_EQ(std::string(bytes, 3), "abc");
  EXPECT_EQ(KivWriteSharedMemChunkCode(nullptr, one_, chunk, 5), KIV_ST_OK);
  EXPECT_EQ(KivReadSharedMemChunkCode(nullptr, zero_, chunk, &code), KIV_ST_OK);
  EXPECT_EQ(code, 5u);
  EXPECT_EQ(KivPutSharedMemChunk(nullptr, one_, chunk), KIV_ST_OK);
  EXPECT_EQ(KivPutSharedMemChunk(nullptr, one_, 7), KIV_ST_ARGUMENT);
}

// ---- Taking chunks ----

TEST_F(Segment, HandsOutTheLowestFreeChunkUntilNoneIsLeft) {
  for (const int32_t expected : {0, 1, 2, 3, 4, -1, -1}) {
    int32_t chunk = kUntouchedIndex;
    CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, one_, &chunk), KIV_ST_OK);
    EXPECT_EQ(chunk, expected);
    EXPECT_TRUE(IsGiven(name_, kLockMember));
  }
  EXPECT_EQ(one_->takenMask, 0x1Fu);
  for (const int32_t given : {3, 1}) {
    CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, one_, given), KIV_ST_OK);
    EXPECT_TRUE(IsGiven(name_, kLockMember));
  }
  EXPECT_EQ(one_->takenMask, 0x15u);
  for (const int32_t expected : {1, 3, -1}) {
    int32_t chunk = kUntouchedIndex;
    CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, one_, &chunk), KIV_ST_OK);
    EXPECT_EQ(chunk, expected);
  }
}

TEST_F(Segment, LetsEachEndCountItsOwnChunks) {
  int32_t chunk = kUntouchedIndex;
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, one_, &chunk), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, one_, &chunk), KIV_ST_OK);
  EXPECT_EQ(chunk, 1);
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, zero_, &chunk), KIV_ST_OK);
  EXPECT_EQ(chunk, 0);
}

TEST_F(Segment, KeepsTheLockIfAChunkIsGivenBackThatWasNotTaken) {
  int32_t chunk = kUntouchedIndex;
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, one_, &chunk), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, one_, 0), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, one_, 0), KIV_ST_CHUNK_NOT_TAKEN);
  EXPECT_FALSE(IsGiven(name_, kLockMember));
  chunk = kUntouchedIndex;
  one_->timeoutMs = kShortMs;
  const Stopwatch watch;
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, one_, &chunk), KIV_ST_SEM_TIMEOUT);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
  CHECK_SILENT(ctx_, KivGetSharedMemChunk(ctx_, zero_, &chunk), KIV_ST_SEM_TIMEOUT);
  CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, zero_, 0), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(chunk, kUntouchedIndex);
  EXPECT_EQ(one_->takenMask, 0u);

  EXPECT_EQ(one_.Write(2, "still"), KIV_ST_OK) << "transfers need no lock";
  EXPECT_EQ(zero_.Read(2, 5), "still");
}

TEST_F(Segment, HandsOutAChunkToOneThreadAtATime) {
  std::atomic<int> holders[5] = {};
  std::atomic<bool> shared{false};
  one_->timeoutMs = kLimitMs;
  OnThreads(4, [&](uint32_t) {
    for (int round = 0; round < 300; ++round) {
      int32_t chunk = kUntouchedIndex;
      ASSERT_EQ(KivGetSharedMemChunk(nullptr, one_, &chunk), KIV_ST_OK);
      ASSERT_TRUE(chunk >= 0 && chunk < 4) << chunk;
      if (holders[chunk].fetch_add(1) != 0) shared = true;
      holders[chunk].fetch_sub(1);
      ASSERT_EQ(KivPutSharedMemChunk(nullptr, one_, chunk), KIV_ST_OK);
    }
  });
  EXPECT_FALSE(shared.load());
  EXPECT_EQ(one_->takenMask, 0u);
}

// ---- Writing ----

TEST_F(Segment, LeavesAHalfOpenUntilItIsFullOrEnded) {
  EXPECT_EQ(one_.Write(0, Pattern(100), kOpen), KIV_ST_OK);
  EXPECT_FALSE(IsGiven(name_, FullMember(0, kFirst)));
  EXPECT_FALSE(IsGiven(name_, EmptyMember(0, kFirst)));
  EXPECT_EQ(one_->writing[0].lengthBytes, 100u);
  EXPECT_EQ(one_->writing[0].offset, 108u);
  EXPECT_EQ(area_.length(0, kFirst), 0u) << "the header is written when the half is handed over";

  EXPECT_EQ(one_.Write(0, Pattern(50, 2), kEnd), KIV_ST_OK);
  EXPECT_EQ(area_.payload(0, kFirst), Pattern(100) + Pattern(50, 2));
  EXPECT_EQ(one_->writing[0].lengthBytes, 0u);
  EXPECT_EQ(one_->writing[0].offset, 0u);
  EXPECT_EQ(zero_.Read(0, 150), Pattern(100) + Pattern(50, 2));
}

TEST_F(Segment, HandsOverAHalfThatIsExactlyFull) {
  for (const bool split : {kWhole, kSplit}) {
    EXPECT_EQ(one_.Write(0, Pattern(2039), kOpen, split), KIV_ST_OK);
    EXPECT_FALSE(IsGiven(name_, FullMember(0, kFirst)));
    EXPECT_EQ(one_.Write(0, "x", kOpen, split), KIV_ST_OK);
    EXPECT_TRUE(IsGiven(name_, FullMember(0, kFirst)));
    EXPECT_EQ(area_.length(0, kFirst), 2040u);
    EXPECT_EQ(zero_.Read(0, 2040), Pattern(2039) + "x");

    EXPECT_EQ(one_.Write(0, Pattern(2040), kOpen, split), KIV_ST_OK);
    EXPECT_EQ(zero_.Read(0, 2040), Pattern(2040));
  }
}

TEST_F(Segment, SplitsDataThatDoesNotFit) {
  EXPECT_EQ(one_.Write(0, Pattern(100), kOpen), KIV_ST_OK);
  EXPECT_EQ(one_.Write(0, Pattern(3000, 2), kEnd, kSplit), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(area_.payload(0, kFirst), Pattern(100) + Pattern(3000, 2).substr(0, 1940));
  EXPECT_EQ(one_->writing[0].code, 0u) << "a time-out blocks no data";
  EXPECT_EQ(zero_.Read(0, 2040), Pattern(100) + Pattern(3000, 2).substr(0, 1940));
  EXPECT_EQ(one_.Write(0, "rest"), KIV_ST_OK);
  EXPECT_EQ(zero_.Read(0, 4), "rest");
}

TEST_F(Segment, PutsUnsplitDataThatDoesNotFitIntoTheNextHalfAndHandsItOver) {
  one_->timeoutMs = kLimitMs;
  EXPECT_EQ(one_.Write(0, Pattern(100), kOpen, kWhole), KIV_ST_OK);
  std::thread writer([&] {
    // Without the end flag, but handed over nevertheless.
    EXPECT_EQ(one_.Write(0, Pattern(2000, 2), kOpen, kWhole), KIV_ST_OK);
  });
  zero_->timeoutMs = kLimitMs;
  EXPECT_EQ(zero_.Read(0, 100), Pattern(100));
  EXPECT_EQ(zero_.Read(0, 2000), Pattern(2000, 2));
  writer.join();
  EXPECT_EQ(one_->writing[0].lengthBytes, 0u);
}

TEST_F(Segment, PutsUnsplitDataThatFitsIntoTheRestOfTheHalf) {
  EXPECT_EQ(one_.Write(0, Pattern(40), kOpen, kWhole), KIV_ST_OK);
  EXPECT_EQ(one_.Write(0, Pattern(1999, 2), kOpen, kWhole), KIV_ST_OK);
  EXPECT_FALSE(IsGiven(name_, FullMember(0, kFirst)));
  EXPECT_EQ(one_.Write(0, "x", kOpen, kWhole), KIV_ST_OK);
  EXPECT_EQ(zero_.Read(0, 2040), Pattern(40) + Pattern(1999, 2) + "x");
}

TEST_F(Segment, HandsOverEmptyHalvesForUnsplitDataLargerThanAHalf) {
  for (const bool end : {kOpen, kEnd}) {
    for (const size_t length : {size_t{2041}, size_t{3000}, size_t{1'000'000}}) {
      EXPECT_EQ(one_.Write(0, Pattern(length), end, kWhole), KIV_ST_SEM_TIMEOUT);
      EXPECT_EQ(area_.length(0, kFirst), 0u);
      EXPECT_EQ(area_.code(0, kFirst), 0u);
      for (int more = 0; more < 2; ++more) {  // hand the half back and receive the next empty one
        EXPECT_TRUE(Member(name_, FullMember(0, kFirst)).Take());
        EXPECT_TRUE(Member(name_, EmptyMember(0, kFirst)).Give());
        EXPECT_EQ(one_.Write(0, Pattern(length), end, kWhole), KIV_ST_SEM_TIMEOUT);
      }
      EXPECT_TRUE(Member(name_, FullMember(0, kFirst)).Take());
      EXPECT_TRUE(Member(name_, EmptyMember(0, kFirst)).Give());
    }
  }
  EXPECT_EQ(std::string(reinterpret_cast<char*>(area_.half(0, kFirst)) + 8, 2040),
            std::string(2040, '\0'));
}

// Adding the length to the offset would wrap around at 32 bits.
TEST_F(Segment, TreatsTheLargestLengthAsDataThatDoesNotFit) {
  EXPECT_EQ(KivWriteSharedMemChunk(ctx_, one_, 0, 0xFFFFFFFF, 0, 0, "x"), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(area_.length(0, kFirst), 0u);
}

TEST_F(Segment, WritesZeroBytesWithoutWaiting) {
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 0, 1, 1, ""), KIV_ST_OK);
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
  EXPECT_EQ(one_.Write(0, "open", kOpen), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 0, 1, 1, ""), KIV_ST_OK);
  EXPECT_FALSE(IsGiven(name_, FullMember(0, kFirst))) << "an empty write must ignore the end flag";
}

TEST_F(Segment, TreatsAnyNonzeroFlagAsSet) {
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 3, 0x80, 0, "abc"), KIV_ST_OK);
  EXPECT_TRUE(IsGiven(name_, FullMember(0, kFirst)));
  char bytes[3] = {};
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, zero_, 0, 3, 0x40, nullptr, bytes), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 3000, 0, 0x20, Pattern(3000).data()),
               KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(area_.length(0, kFirst), 2040u);
}

// ---- Codes ----

TEST_F(Segment, DropsTheDataOfAnOpenHalfThatACodeEnds) {
  EXPECT_EQ(one_.Write(0, Pattern(100), kOpen), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 77), KIV_ST_OK);
  EXPECT_EQ(area_.code(0, kFirst), 77u);
  EXPECT_EQ(area_.length(0, kFirst), 100u);
  EXPECT_EQ(one_->writing[0].code, 0u);
  EXPECT_EQ(one_->writing[0].lengthBytes, 0u);
  EXPECT_EQ(one_->writing[0].offset, 0u);

  GuardedBytes buffer(100);
  uint32_t code = 0;
  CHECK_SILENT(ctx_, Read(zero_, 0, 100, buffer.data(), &code), KIV_ST_OK);
  EXPECT_EQ(code, 77u);
  EXPECT_TRUE(buffer.IsAll(kiv::test::kSpoilt));
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
  EXPECT_EQ(zero_->reading[0].code, 0u);
  EXPECT_EQ(zero_->reading[0].lengthBytes, 0u);
  EXPECT_EQ(one_.Write(0, "next"), KIV_ST_OK);
  EXPECT_EQ(zero_.Read(0, 4), "next");
}

TEST_F(Segment, SendsAnOpenHalfAsADataMessageIfTheCodeIsZero) {
  EXPECT_EQ(one_.Write(0, Pattern(100), kOpen), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 0), KIV_ST_OK);
  EXPECT_EQ(area_.code(0, kFirst), 0u);
  EXPECT_EQ(area_.length(0, kFirst), 100u);
  EXPECT_EQ(one_->writing[0].lengthBytes, 0u);
  EXPECT_EQ(zero_.Read(0, 100), Pattern(100));
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
}

TEST_F(Segment, EndsAReadWithACodeThatFollowsData) {
  one_->timeoutMs = zero_->timeoutMs = kLimitMs;
  std::thread writer([&] {
    EXPECT_EQ(one_.Write(0, Pattern(2040)), KIV_ST_OK);
    EXPECT_EQ(KivWriteSharedMemChunkCode(nullptr, one_, 0, 0xFFFFFFFF), KIV_ST_OK);
  });
  std::string data(3000, '\0');
  uint32_t code = 0;
  CHECK_SILENT(ctx_, Read(zero_, 0, 3000, data.data(), &code), KIV_ST_OK);
  writer.join();
  EXPECT_EQ(code, 0xFFFFFFFFu);
  EXPECT_EQ(data, Pattern(2040) + std::string(960, '\0'));
}

TEST_F(Segment, StoresTheCodeOfEveryMessageThatAReadBegins) {
  EXPECT_EQ(one_.Write(0, "abcdef"), KIV_ST_OK);
  char bytes[6] = {};
  uint32_t code = kUntouched;
  CHECK_SILENT(ctx_, Read(zero_, 0, 2, bytes, &code), KIV_ST_OK);
  EXPECT_EQ(code, 0u);
  code = kUntouched;
  CHECK_SILENT(ctx_, Read(zero_, 0, 4, bytes, &code), KIV_ST_OK);
  EXPECT_EQ(code, kUntouched) << "an earlier read began the message";
  CHECK_SILENT(ctx_, Read(zero_, 0, 1, bytes, &code), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(code, kUntouched) << "there is no message";
}

TEST_F(Segment, SendsTheCodeZeroAsAnEmptyDataMessage) {
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 0), KIV_ST_OK);
  EXPECT_TRUE(IsGiven(name_, FullMember(0, kFirst)));
  EXPECT_EQ(ReadString(zero_, 0), "");
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
}

TEST_F(Segment, ReadsTheCodeOfADataMessageAsZeroAndKeepsTheLength) {
  EXPECT_EQ(one_.Write(0, Pattern(100)), KIV_ST_OK);
  uint32_t code = kUntouched;
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, zero_, 0, &code), KIV_ST_OK);
  EXPECT_EQ(code, 0u);
  EXPECT_EQ(zero_->reading[0].lengthBytes, 100u);
  EXPECT_EQ(zero_->reading[0].offset, 0u);
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
  // The next read treats the length as a message in the half, but cannot hand the half back again.
  char bytes[100] = {};
  CHECK_SILENT(ctx_, Read(zero_, 0, 100, bytes, &code), kNotGiven);
  EXPECT_EQ(std::string(bytes + 8, 92), Pattern(100).substr(0, 92));
}

TEST_F(Segment, ReadingACodeWithinAMessageTimesOutAndKeepsTheRest) {
  EXPECT_EQ(one_.Write(0, "abcdef"), KIV_ST_OK);
  EXPECT_EQ(zero_.Read(0, 2), "ab");
  uint32_t code = kUntouched;
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, zero_, 0, &code), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(code, kUntouched);
  EXPECT_EQ(zero_->reading[0].lengthBytes, 4u);
  EXPECT_EQ(zero_->reading[0].offset, 10u);
  EXPECT_FALSE(IsGiven(name_, EmptyMember(0, kFirst)));
  EXPECT_EQ(zero_.Read(0, 4), "cdef");
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
}

// ---- Reading ----

TEST_F(Segment, LeavesTheRestOfAMessageForTheNextRead) {
  EXPECT_EQ(one_.Write(0, Pattern(2040)), KIV_ST_OK);
  EXPECT_EQ(zero_.Read(0, 1), Pattern(2040).substr(0, 1));
  EXPECT_EQ(zero_->reading[0].lengthBytes, 2039u);
  EXPECT_EQ(zero_->reading[0].offset, 9u);
  EXPECT_EQ(zero_.Read(0, 2038), Pattern(2040).substr(1, 2038));
  EXPECT_FALSE(IsGiven(name_, EmptyMember(0, kFirst)));
  EXPECT_EQ(zero_.Read(0, 1), Pattern(2040).substr(2039));
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
}

TEST_F(Segment, ReadsZeroBytesWithoutWaiting) {
  char byte = 'a';
  uint32_t code = kUntouched;
  CHECK_SILENT(ctx_, Read(zero_, 0, 0, &byte, &code), KIV_ST_OK);
  EXPECT_EQ(one_.Write(0, "x"), KIV_ST_OK);
  CHECK_SILENT(ctx_, Read(zero_, 0, 0, &byte, &code), KIV_ST_OK);
  EXPECT_TRUE(IsGiven(name_, FullMember(0, kFirst)));
  EXPECT_EQ(code, kUntouched);
  EXPECT_EQ(byte, 'a');
}

TEST_F(Segment, KeepsTheBytesReadBeforeATimeOut) {
  EXPECT_EQ(one_.Write(0, Pattern(2040)), KIV_ST_OK);
  std::string data(3000, '\0');
  CHECK_SILENT(ctx_, Read(zero_, 0, 3000, data.data()), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(data, Pattern(2040) + std::string(960, '\0'));
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
}

TEST_F(Segment, ReadsPastAMessageToTheHalfsEndAndThenBlocksTheChunk) {
  std::memset(area_.half(0, kFirst) + 8, 'z', 2040);
  EXPECT_EQ(one_.Write(0, "0123456789"), KIV_ST_OK);
  GuardedBytes buffer(2040);
  CHECK_SILENT(ctx_, Read(zero_, 0, 20, buffer.data()), KIV_ST_OK);
  EXPECT_EQ(std::string(buffer.text(), 20), "0123456789zzzzzzzzzz");
  EXPECT_EQ(zero_->reading[0].lengthBytes, 0xFFFFFFF6u);
  EXPECT_FALSE(IsGiven(name_, EmptyMember(0, kFirst)));
  CHECK_SILENT(ctx_, Read(zero_, 0, 2020, buffer.data()), KIV_ST_OK);
  EXPECT_EQ(std::string(buffer.text(), 2020), std::string(2020, 'z'));
  EXPECT_EQ(zero_->reading[0].offset, 2048u);

  uint32_t code = 0;
  CHECK_SILENT(ctx_, Read(zero_, 0, 1, buffer.data(), &code), kOverrun);
  EXPECT_EQ(code, kOverrun);
  EXPECT_EQ(zero_->reading[0].code, kOverrun);
  CHECK_SILENT(ctx_, Read(zero_, 0, 1, buffer.data(), &code), kLatched);
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, zero_, 0, &code), KIV_ST_CHUNK_CODE);
  EXPECT_FALSE(IsGiven(name_, EmptyMember(0, kFirst)));
}

TEST_F(Segment, BlocksTheChunkWithinOneReadThatAsksForTooMuch) {
  EXPECT_EQ(one_.Write(0, "0123456789"), KIV_ST_OK);
  GuardedBytes buffer(3000);
  CHECK_SILENT(ctx_, Read(zero_, 0, 3000, buffer.data()), kOverrun);
  EXPECT_TRUE(buffer.IsAll(kiv::test::kSpoilt, 2040, 3000));
}

// ---- Strings ----

TEST_F(Segment, ReadsAStringWithItsZeroByte) {
  EXPECT_EQ(one_.Write(0, std::string("abc\0defg\0\0h", 11)), KIV_ST_OK);
  EXPECT_EQ(ReadString(zero_, 0), std::string("abc\0", 4));
  EXPECT_EQ(ReadString(zero_, 0, 1), std::string("defg\0", 5)) << "the length is ignored";
  EXPECT_EQ(ReadString(zero_, 0, 9999), std::string("\0", 1));
  EXPECT_FALSE(IsGiven(name_, EmptyMember(0, kFirst)));
  EXPECT_EQ(ReadString(zero_, 0), "h") << "up to the message's end";
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
}

TEST_F(Segment, ReadsStringsThatEndAtEveryPlace) {
  for (size_t length = 1; length <= 2040; ++length) {
    if (length > 20 && length < 2025) length += 31;
    const std::string string = Pattern(length - 1) + std::string(1, '\0');
    // The half still holds zero bytes of earlier, longer strings. Those behind the message must not
    // count.
    ASSERT_EQ(one_.Write(0, string), KIV_ST_OK);
    ASSERT_EQ(ReadString(zero_, 0), string) << length;
    ASSERT_TRUE(IsGiven(name_, EmptyMember(0, kFirst))) << length;
    const std::string rest = Pattern(2040 - length, 2);
    ASSERT_EQ(one_.Write(0, string + rest), KIV_ST_OK);
    ASSERT_EQ(ReadString(zero_, 0), string) << length;
    if (length == 2040) continue;
    ASSERT_EQ(ReadString(zero_, 0), rest) << length;
  }
}

TEST_F(Segment, EndsAnUnterminatedStringAtTheMessagesEnd) {
  std::memset(area_.half(0, kFirst) + 8, 'z', 2040);
  EXPECT_EQ(one_.Write(0, "abc"), KIV_ST_OK);
  EXPECT_EQ(ReadString(zero_, 0), "abc");
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst)));
}

TEST_F(Segment, ReadsAStringFromTheRestOfAMessage) {
  EXPECT_EQ(one_.Write(0, std::string("1234abc\0", 8)), KIV_ST_OK);
  EXPECT_EQ(zero_.Read(0, 4), "1234");
  EXPECT_EQ(ReadString(zero_, 0), std::string("abc\0", 4));
}

TEST_F(Segment, EndsAStringReadWithACode) {
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 9), KIV_ST_OK);
  GuardedBytes buffer(10);
  uint32_t code = 0;
  CHECK_SILENT(ctx_, KivReadSharedMemChunk(ctx_, zero_, 0, 10, 1, &code, buffer.data()), KIV_ST_OK);
  EXPECT_EQ(code, 9u);
  EXPECT_TRUE(buffer.IsAll(kiv::test::kSpoilt));
}

// ---- Time-outs ----

TEST_F(Segment, TimesOutOnEverySemaphoreAndRecordsNothing) {
  one_->timeoutMs = zero_->timeoutMs = kShortMs;
  for (const uint32_t kind : {1u, 0u}) {
    for (int chunk = 0; chunk < 5; ++chunk) {
      SCOPED_TRACE(testing::Message() << "kind " << kind << ", chunk " << chunk);
      char byte = 'a';
      uint32_t code = kUntouched;
      const Stopwatch watch;
      CHECK_SILENT(ctx_, Read(End(kind), chunk, 1, &byte, &code), KIV_ST_SEM_TIMEOUT);
      CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, End(kind), chunk, &code),
                   KIV_ST_SEM_TIMEOUT);
      EXPECT_GE(watch.ElapsedMs(), 2 * kShortAtLeastMs);
      EXPECT_EQ(code, kUntouched);

      EXPECT_TRUE(Member(name_, EmptyMember(chunk, kind == 1)).Take());
      const Stopwatch writes;
      CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, End(kind), chunk, 1, 1, 1, &byte),
                   KIV_ST_SEM_TIMEOUT);
      CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, End(kind), chunk, 6), KIV_ST_SEM_TIMEOUT);
      EXPECT_GE(writes.ElapsedMs(), 2 * kShortAtLeastMs);
      EXPECT_LT(writes.ElapsedMs(), kLimitMs);
    }
  }
}

TEST_F(Segment, WaitsForeverWithAnInfiniteTimeOut) {
  zero_->timeoutMs = KIV_WAIT_INFINITE;
  const kiv::test::Later write([&] { EXPECT_EQ(one_.Write(4, "late"), KIV_ST_OK); });
  EXPECT_EQ(zero_.Read(4, 4), "late");
}

TEST_F(Segment, IsBlockedForWritingAfterACodeTimedOut) {
  EXPECT_EQ(one_.Write(0, "full"), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 6), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(one_->writing[0].code, 6u);
  EXPECT_EQ(zero_.Read(0, 4), "full");
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 1, 1, 1, "x"), kLatched);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 0, 1, 1, "x"), kLatched);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 7), kLatched);
  EXPECT_EQ(one_->writing[0].code, 6u);
  EXPECT_TRUE(IsGiven(name_, EmptyMember(0, kFirst))) << "a blocked chunk uses no semaphore";
  EXPECT_EQ(one_.Write(1, "other"), KIV_ST_OK);
  EXPECT_EQ(zero_.Write(0, "back"), KIV_ST_OK);
  EXPECT_EQ(one_.Read(0, 4), "back");
}

// ---- Semaphores that another party released ----

TEST_F(Segment, IsBlockedForWritingIfAHalfCannotBeHandedOver) {
  EXPECT_TRUE(Member(name_, FullMember(0, kFirst)).Give());
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 3, 1, 1, "abc"), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(one_->writing[0].code, kNotGiven);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, one_, 0, 3, 1, 1, "abc"), kLatched);

  EXPECT_TRUE(Member(name_, FullMember(1, kSecond)).Give());
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, zero_, 1, 8), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(zero_->writing[1].code, kNotGiven);
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, zero_, 1, 8), kLatched);
}

TEST_F(Segment, IsBlockedForReadingIfAHalfCannotBeHandedBack) {
  EXPECT_EQ(one_.Write(0, "abc"), KIV_ST_OK);
  EXPECT_TRUE(Member(name_, EmptyMember(0, kFirst)).Give());
  char bytes[3] = {};
  uint32_t code = 0;
  CHECK_SILENT(ctx_, Read(zero_, 0, 3, bytes, &code), kNotGiven);
  EXPECT_EQ(code, kNotGiven);
  EXPECT_EQ(std::string(bytes, 3), "abc");
  EXPECT_EQ(zero_->reading[0].code, kNotGiven);
  CHECK_SILENT(ctx_, Read(zero_, 0, 0, bytes, &code), kLatched);
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, zero_, 0, &code), KIV_ST_CHUNK_CODE);
  EXPECT_EQ(zero_.Write(0, "still"), KIV_ST_OK);
  EXPECT_EQ(one_.Read(0, 5), "still");
}

TEST_F(Segment, ReadsACodeEvenIfTheHalfCannotBeHandedBack) {
  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 3), KIV_ST_OK);
  EXPECT_TRUE(Member(name_, EmptyMember(0, kFirst)).Give());
  char byte = 'a';
  uint32_t code = 0;
  CHECK_SILENT(ctx_, Read(zero_, 0, 1, &byte, &code), KIV_ST_OK);
  EXPECT_EQ(code, 3u);
  EXPECT_EQ(zero_->reading[0].code, 0u);

  CHECK_SILENT(ctx_, KivWriteSharedMemChunkCode(ctx_, one_, 0, 4), KIV_ST_OK);
  EXPECT_TRUE(Member(name_, EmptyMember(0, kFirst)).Give());
  CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, zero_, 0, &code), KIV_ST_SEM_CLEAR);
  EXPECT_EQ(code, 4u);
  EXPECT_EQ(zero_->reading[0].code, 0u);
}

}  // namespace
