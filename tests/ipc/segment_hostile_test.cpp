// A hostile peer that writes arbitrary bytes into the shared area. The memory that the library may
// access is surrounded by inaccessible pages, so an access outside it crashes the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/memory_region.h"
#include "support/segment.h"
#include "support/waiting.h"

namespace {

using kiv::test::MapFenced;
using kiv::test::UniqueName;
using kiv::test::UnmapFenced;

constexpr size_t kPageBytes = 4096;
constexpr uint32_t kHalfBytes = 2048;

// A buffer with an inaccessible page directly behind it or directly before it.
class FencedBytes {
 public:
  enum Side { kBehind, kBefore };

  FencedBytes(size_t sizeBytes, Side side)
      : openBytes_((sizeBytes + kPageBytes - 1) / kPageBytes * kPageBytes),
        open_(static_cast<unsigned char*>(MapFenced(openBytes_))),
        bytes_(open_ + (side == kBehind ? openBytes_ - sizeBytes : 0)) {}
  ~FencedBytes() { UnmapFenced(open_, openBytes_); }
  FencedBytes(const FencedBytes&) = delete;
  FencedBytes& operator=(const FencedBytes&) = delete;

  unsigned char* data() const { return bytes_; }

 private:
  size_t openBytes_;
  unsigned char* open_;
  unsigned char* bytes_;
};

// One end of a segment whose half lies next to an inaccessible page. The test acts as the peer.
class HostileSegment : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(KivSdShSemSetClose(nullptr, set_), KIV_ST_OK); }
  void SetUp() override {
    const std::vector<int32_t> none(21, 0);
    const std::vector<int32_t> one(21, 1);
    ASSERT_EQ(KivSdShSemSetCreate(nullptr, UniqueName("hostile").c_str(), 21, 0, none.data(),
                                  one.data(), &set_),
              KIV_ST_OK);
  }

  // Returns an end whose area consists only of this half of chunk 0. Its time-out is 0.
  KivSharedMemSeg EndOn(unsigned char* half, bool reading, uint32_t kind) {
    KivSharedMemSeg end = {};
    end.semaphores = set_;
    end.halfBytes = kHalfBytes;
    end.chunkCount = 5;
    end.kind = kind;
    const bool first = reading == (kind == 0);
    end.buffer = half - (first ? 0 : kHalfBytes);
    return end;
  }

  // Sends the message in the half once more, even if the half was not handed back.
  void Offer(const KivSharedMemSeg& end) {
    const uint16_t full = end.kind == 0 ? 1 : 3;
    static_cast<void>(KivSdShSemSetRequest(nullptr, static_cast<uint16_t>(full + 1), set_, 0));
    static_cast<void>(KivSdShSemSetClear(nullptr, full, set_));
  }

  static void PutHeader(unsigned char* half, uint32_t code, uint32_t length) {
    std::memcpy(half, &code, sizeof code);
    std::memcpy(half + 4, &length, sizeof length);
  }

  KivSdShSemSet* set_ = nullptr;
};

constexpr uint32_t kLengths[] = {0,    1,    7,          2039,       2040,       2041,      2048,
                                 2049, 4096, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF8, 0xFFFFFFFF};
constexpr uint32_t kWanted[] = {1, 8, 2039, 2040, 2041, 2048, 4080, 5000};

TEST_F(HostileSegment, IsReadOnlyWithinItsHalfWhateverTheHeaderSays) {
  for (const FencedBytes::Side side : {FencedBytes::kBehind, FencedBytes::kBefore}) {
    const FencedBytes half(kHalfBytes, side);
    for (const uint32_t kind : {0u, 1u}) {
      for (const uint32_t length : kLengths) {
        for (const uint32_t wanted : kWanted) {
          const FencedBytes buffer(wanted, FencedBytes::kBehind);
          std::memset(half.data(), 'z', kHalfBytes);
          PutHeader(half.data(), 0, length);
          KivSharedMemSeg end = EndOn(half.data(), true, kind);
          uint32_t status = KIV_ST_OK;
          for (int round = 0; round < 4 && status == KIV_ST_OK; ++round) {
            Offer(end);
            status = KivReadSharedMemChunk(nullptr, &end, 0, wanted, 0, nullptr, buffer.data());
            ASSERT_LE(end.reading[0].offset, kHalfBytes);
          }
          EXPECT_TRUE(status == KIV_ST_OK || status == KIV_ST_SEM_TIMEOUT ||
                      status == KIV_CHUNK_OVERRUN)
              << status << " for " << wanted << " of " << length;
        }
      }
    }
  }
}

TEST_F(HostileSegment, ReturnsStringsNoLongerThanAHalf) {
  for (const FencedBytes::Side side : {FencedBytes::kBehind, FencedBytes::kBefore}) {
    const FencedBytes half(kHalfBytes, side);
    const FencedBytes buffer(kHalfBytes, side);
    for (const uint32_t kind : {0u, 1u}) {
      for (const uint32_t length : kLengths) {
        for (const bool afterCode : {false, true}) {
          std::memset(half.data(), 'z', kHalfBytes);
          PutHeader(half.data(), afterCode ? 0x7A7A7A7A : 0, length);
          KivSharedMemSeg end = EndOn(half.data(), true, kind);
          uint32_t code = 0;
          Offer(end);
          if (afterCode) {  // reading a code leaves the length in the state and the offset at 0
            ASSERT_EQ(KivReadSharedMemChunkCode(nullptr, &end, 0, &code), KIV_ST_OK);
            PutHeader(half.data(), 0x7A7A7A7A, 0x7A7A7A7A);
            Offer(end);
          }
          for (int round = 0; round < 3; ++round) {
            const uint32_t status =
                KivReadSharedMemChunk(nullptr, &end, 0, 1, 1, nullptr, buffer.data());
            ASSERT_LE(end.reading[0].offset, kHalfBytes);
            if (status != KIV_ST_OK) break;
          }
        }
      }
    }
  }
}

// The check that a server makes after every read if it does not trust its peer.
bool HasLied(const KivSharedMemTransfer& state) {
  return state.lengthBytes > KIV_SEGMENT_HALF_BYTES - state.offset;
}

TEST_F(HostileSegment, ReturnsEndlessEmptyStringsThatTheStateReveals) {
  const FencedBytes half(kHalfBytes, FencedBytes::kBehind);
  for (const uint32_t length : kLengths) {
    SCOPED_TRACE(length);
    std::memset(half.data(), 'z', kHalfBytes);
    PutHeader(half.data(), 0, length);
    KivSharedMemSeg end = EndOn(half.data(), true, 0);
    const KivSharedMemTransfer& state = end.reading[0];
    std::vector<char> buffer(kHalfBytes, '#');
    const auto read = [&] {
      return KivReadSharedMemChunk(nullptr, &end, 0, 0, 1, nullptr, buffer.data());
    };
    Offer(end);
    EXPECT_EQ(read(), KIV_ST_OK);
    EXPECT_EQ(HasLied(state), length > KIV_SEGMENT_PAYLOAD_BYTES);
    if (!HasLied(state)) continue;
    EXPECT_EQ(state.offset, kHalfBytes);
    std::fill(buffer.begin(), buffer.end(), '#');
    for (int more = 0; more < 3; ++more) {
      EXPECT_EQ(read(), KIV_ST_OK);
      EXPECT_EQ(buffer, std::vector<char>(kHalfBytes, '#'));
      EXPECT_EQ(state.lengthBytes, length - KIV_SEGMENT_PAYLOAD_BYTES);
      EXPECT_EQ(state.code, 0u);
      EXPECT_TRUE(HasLied(state));
    }
    EXPECT_EQ(KivReadSharedMemChunk(nullptr, &end, 0, 1, 0, nullptr, buffer.data()),
              KIV_CHUNK_OVERRUN)
        << "a read of bytes must block the chunk";
  }
}

TEST_F(HostileSegment, IsWrittenOnlyWithinItsHalf) {
  for (const FencedBytes::Side side : {FencedBytes::kBehind, FencedBytes::kBefore}) {
    const FencedBytes half(kHalfBytes, side);
    for (const uint32_t kind : {0u, 1u}) {
      const auto full = static_cast<uint16_t>(kind == 1 ? 1 : 3);
      const auto empty = static_cast<uint16_t>(full + 1);
      for (const uint32_t length : kWanted) {
        for (const bool split : {false, true}) {
          const FencedBytes data(length, FencedBytes::kBehind);
          KivSharedMemSeg end = EndOn(half.data(), false, kind);
          std::memset(half.data(), 0xFF, kHalfBytes);
          for (int round = 0; round < 3; ++round) {
            static_cast<void>(KivSdShSemSetRequest(nullptr, full, set_, 0));
            static_cast<void>(KivSdShSemSetClear(nullptr, empty, set_));
            static_cast<void>(
                KivWriteSharedMemChunk(nullptr, &end, 0, length, 0, split ? 1 : 0, data.data()));
            ASSERT_LE(end.writing[0].offset, kHalfBytes);
          }
          static_cast<void>(KivSdShSemSetRequest(nullptr, full, set_, 0));
        }
      }
    }
  }
}

// Changes the header and the data until done. The thread stands for another process, so that no
// sanitizer may see its writes.
__attribute__((no_sanitize("thread"))) void KeepChanging(unsigned char* half,
                                                         const std::atomic<bool>& done) {
  for (uint32_t state = 1; !done.load(std::memory_order_relaxed);) {
    state = state * 1664525u + 1013904223u;
    auto* words = reinterpret_cast<volatile uint32_t*>(half);
    words[0] = state % 16 == 0 ? state : 0;
    words[1] = (state & 0x100) != 0 ? kLengths[(state >> 16) % std::size(kLengths)] : state;
    // A zero byte may appear at three places, so that only some strings are terminated.
    const size_t place = (state >> 8) % 2040;
    const bool zero = place % 600 == 599 && (state & 0x80000000) != 0;
    half[8 + place] = zero ? 0 : 'z';
  }
}

TEST_F(HostileSegment, IsReadOnlyWithinItsHalfWhileItChanges) {
  constexpr uint32_t kBuffers = 3000;
  const FencedBytes half(kHalfBytes, FencedBytes::kBehind);
  std::memset(half.data(), 'z', kHalfBytes);
  std::atomic<bool> done{false};
  std::thread peer([&] { KeepChanging(half.data(), done); });
  uint32_t reads = 0;
  uint32_t wanted = 1;
  for (uint32_t used = 0; used < kBuffers; ++used, wanted = wanted * 7 % 5003) {
    const bool string = wanted % 2 != 0;
    const FencedBytes buffer(string ? kHalfBytes : wanted, FencedBytes::kBehind);
    KivSharedMemSeg end = EndOn(half.data(), true, wanted / 2 % 2);
    for (int round = 0; round < 3; ++round) {
      Offer(end);
      if (KivReadSharedMemChunk(nullptr, &end, 0, wanted, string ? 1 : 0, nullptr, buffer.data()) !=
          KIV_ST_OK) {
        break;
      }
      ASSERT_LE(end.reading[0].offset, kHalfBytes);
      ++reads;
    }
  }
  done = true;
  peer.join();
  EXPECT_GT(reads, kBuffers / 4);
}

}  // namespace
