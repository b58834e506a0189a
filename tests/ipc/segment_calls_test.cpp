// The calls that segments make to the semaphore sets, the shared blocks and the memory front: their
// order, members, records and source positions. The test replaces the called functions, so that
// segments also run natively under the sanitizers.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/segment.h"
#include "kivsdu/status.h"
#include "support/segment_calls.h"

namespace {

using kiv::test::SegmentCalls;

constexpr uint32_t kTimeoutMs = 4711;
constexpr uint32_t kStrange = 77;  // a status that no call returns by itself

KivSdShSemSet* const kSet = reinterpret_cast<KivSdShSemSet*>(uintptr_t{0x1000});
KivHandle const kMapping = reinterpret_cast<KivHandle>(uintptr_t{0x2000});

// Records the calls as text. Each call succeeds unless the test sets another status.
class Written : public SegmentCalls {
 public:
  Written(KivSdContext* ctx, KivSharedMemSeg* const* segment) : ctx_(ctx), segment_(segment) {}

  std::string Take() {
    const std::string calls = calls_;
    calls_.clear();
    return calls;
  }

  uint32_t closeStatus = KIV_ST_OK;
  uint32_t allocStatus = KIV_ST_OK;
  uint32_t freeStatus = KIV_ST_OK;

  uint32_t Request(KivSdContext* ctx, uint16_t member, KivSdShSemSet* set,
                   uint32_t timeoutMs) override {
    EXPECT_EQ(set, kSet);
    EXPECT_EQ(timeoutMs, kTimeoutMs);
    return Write("request " + std::to_string(member), ctx, KIV_ST_OK);
  }
  uint32_t Clear(KivSdContext* ctx, uint16_t member, KivSdShSemSet* set) override {
    EXPECT_EQ(set, kSet);
    return Write("clear " + std::to_string(member), ctx, KIV_ST_OK);
  }
  uint32_t CreateSet(KivSdContext* ctx, const char* name, uint16_t count, uint64_t ignored,
                     KivSdShSemSet** set) override {
    *set = kSet;
    return Write(
        "set " + std::string(name) + " " + std::to_string(count) + " " + std::to_string(ignored),
        ctx, KIV_ST_OK);
  }
  uint32_t CloseSet(KivSdContext* ctx, KivSdShSemSet* set) override {
    EXPECT_EQ(set, kSet);
    return Write("close", ctx, closeStatus);
  }
  uint32_t AllocArea(KivSdContext* ctx, const char* name, uint32_t sizeBytes, uint32_t openFlags,
                     uint32_t protectionFlags, KivHandle* mapping, uint32_t* mappingId,
                     void** view) override {
    *mapping = kMapping;
    *mappingId = 9;
    *view = area_;
    return Write("area " + std::string(name) + " " + std::to_string(sizeBytes) + " " +
                     std::to_string(openFlags) + " " + std::to_string(protectionFlags),
                 ctx, KIV_ST_OK);
  }
  uint32_t FreeArea(KivSdContext* ctx, KivHandle mapping, void* view) override {
    EXPECT_EQ(mapping, kMapping);
    EXPECT_EQ(view, area_);
    return Write("free area", ctx, freeStatus);
  }
  uint32_t Alloc(KivSdContext* ctx, uint32_t sizeBytes, void** out, const char* file,
                 uint32_t line) override {
    *out = allocStatus == KIV_ST_OK ? std::malloc(sizeBytes) : nullptr;
    return Write("alloc " + std::to_string(sizeBytes) + " " + file + " " + std::to_string(line),
                 ctx, allocStatus);
  }
  uint32_t Free(KivSdContext* ctx, void* block, const char* file, uint32_t line) override {
    EXPECT_EQ(ctx, nullptr);
    EXPECT_EQ(block, *segment_);
    std::free(block);
    calls_ += "free " + std::string(file) + " " + std::to_string(line) + "; ";
    return KIV_ST_OK;
  }

 private:
  uint32_t Write(const std::string& call, KivSdContext* ctx, uint32_t status) {
    EXPECT_EQ(ctx, ctx_) << call;
    calls_ += call + "; ";
    return status;
  }

  KivSdContext* ctx_;
  KivSharedMemSeg* const* segment_;
  std::string calls_;
  alignas(8) unsigned char area_[KIV_SEGMENT_AREA_BYTES] = {};
};

class SegmentCall : public testing::Test {
 protected:
  void Make(uint32_t kind = 1) {
    uint32_t id = 0;
    void* view = nullptr;
    ASSERT_EQ(Find(1, kind), KIV_ST_OK);
    ASSERT_EQ(KivCreateSharedMemSeg(&ctx_, "name", kind, 10, 1, segment_, kTimeoutMs, &id, &view),
              KIV_ST_OK);
    ASSERT_EQ(KivSetSharedMemSegBuffer(&ctx_, segment_, view), KIV_ST_OK);
  }

  uint32_t Find(uint32_t stamp, uint32_t kind = 1) {
    return KivFindShareMemSeg(&ctx_, "name", kind, &list_, 1, stamp, 2, &fresh_, nullptr,
                              &segment_);
  }

  void Delete() {
    EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), KIV_ST_OK);
    list_ = nullptr;
    calls_.Take();
  }

  KivSdContext ctx_ = {};
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;
  uint8_t fresh_ = 0;
  Written calls_{&ctx_, &segment_};
};

TEST_F(SegmentCall, SetUpAndTearDownMakeTheirCallsInOrder) {
  Make();
  EXPECT_EQ(calls_.Take(), "alloc 448 sd/shmem 84; set name 21 10; area name 20480 10 1; ");
  EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "close; free area; free sd/shmem 192; ");
}

TEST_F(SegmentCall, FindClosesOnlyAnEarlierOwnersSetAndAreaAndOnlyOnce) {
  Make();
  calls_.Take();
  EXPECT_EQ(Find(1), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "");
  EXPECT_EQ(Find(3), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "close; free area; ");
  EXPECT_EQ(segment_->semaphores, kSet);
  EXPECT_EQ(Find(4), KIV_ST_OK);
  EXPECT_EQ(fresh_, 1);
  EXPECT_EQ(calls_.Take(), "") << "nothing is left to close";
  EXPECT_EQ(segment_->semaphores, kSet);
  EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "free sd/shmem 192; ");
}

TEST_F(SegmentCall, DeleteClosesASetWithoutAnArea) {
  Make();
  calls_.Take();
  segment_->mapping = nullptr;  // the descriptor still has a view, so it still has a set
  EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "close; free sd/shmem 192; ");
}

TEST_F(SegmentCall, DeleteClosesNothingThatWasNeverSetUp) {
  ASSERT_EQ(Find(1), KIV_ST_OK);
  calls_.Take();
  EXPECT_EQ(KivDeleteSingleSharedMemSeg(&ctx_, segment_), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "");
  EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "free sd/shmem 192; ");
}

TEST_F(SegmentCall, FindReturnsTheStatusOfAFailedAllocation) {
  calls_.allocStatus = kStrange;
  EXPECT_EQ(Find(1), kStrange);
  EXPECT_EQ(segment_, nullptr);
  EXPECT_EQ(list_, nullptr);
  EXPECT_EQ(fresh_, 0);
}

TEST_F(SegmentCall, DeleteKeepsTheAreaIfTheSetCannotBeClosed) {
  Make();
  calls_.Take();
  calls_.closeStatus = kStrange;
  EXPECT_EQ(KivDeleteSingleSharedMemSeg(&ctx_, segment_), kStrange);
  EXPECT_EQ(calls_.Take(), "close; ");
  EXPECT_EQ(segment_->semaphores, kSet);
  EXPECT_EQ(segment_->mapping, kMapping);
  EXPECT_EQ(Find(5), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "close; ");
  EXPECT_EQ(fresh_, 1);
  EXPECT_EQ(segment_->mapping, nullptr);
  segment_->mapping = kMapping;
  EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), kStrange);
  EXPECT_EQ(calls_.Take(), "close; ");
  std::free(list_);
}

TEST_F(SegmentCall, DeleteKeepsADescriptorWhoseAreaCannotBeFreed) {
  Make();
  calls_.Take();
  calls_.freeStatus = kStrange;
  EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), kStrange);
  EXPECT_EQ(calls_.Take(), "close; free area; ");
  calls_.freeStatus = KIV_ST_OK;
  EXPECT_EQ(KivDeleteSharedMemSeg(&ctx_, list_), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "free sd/shmem 192; ") << "nothing is closed twice";
}

// ---- Chunks ----

std::string HandOver(const char* first, int member, const char* second, int other) {
  return std::string(first) + " " + std::to_string(member) + "; " + second + " " +
         std::to_string(other) + "; ";
}

TEST_F(SegmentCall, ChunksUseTheirMembersOfTheSet) {
  for (const uint32_t kind : {1u, 0u}) {
    Make(kind);
    calls_.Take();
    for (int32_t chunk = 0; chunk < 5; ++chunk) {
      const int written = 4 * chunk + (kind == 1 ? 1 : 3);
      const int read = 4 * chunk + (kind == 1 ? 3 : 1);
      int32_t taken = -1;
      EXPECT_EQ(KivGetSharedMemChunk(&ctx_, segment_, &taken), KIV_ST_OK);
      EXPECT_EQ(calls_.Take(), "request 0; clear 0; ");
      EXPECT_EQ(KivWriteSharedMemChunk(&ctx_, segment_, chunk, 1, 1, 0, "x"), KIV_ST_OK);
      EXPECT_EQ(calls_.Take(), HandOver("request", written + 1, "clear", written));
      EXPECT_EQ(KivWriteSharedMemChunkCode(&ctx_, segment_, chunk, 1), KIV_ST_OK);
      EXPECT_EQ(calls_.Take(), HandOver("request", written + 1, "clear", written));
      uint32_t code = 0;
      EXPECT_EQ(KivReadSharedMemChunkCode(&ctx_, segment_, chunk, &code), KIV_ST_OK);
      EXPECT_EQ(calls_.Take(), HandOver("request", read, "clear", read + 1));
      char byte = 'a';
      EXPECT_EQ(KivReadSharedMemChunk(&ctx_, segment_, chunk, 0, 1, &code, &byte), KIV_ST_OK);
      EXPECT_EQ(calls_.Take(), HandOver("request", read, "clear", read + 1));
    }
    EXPECT_EQ(KivPutSharedMemChunk(&ctx_, segment_, 4), KIV_ST_OK);
    EXPECT_EQ(calls_.Take(), "request 0; clear 0; ");
    EXPECT_EQ(KivPutSharedMemChunk(&ctx_, segment_, 4), KIV_ST_CHUNK_NOT_TAKEN);
    EXPECT_EQ(calls_.Take(), "request 0; ") << "the lock stays taken";
    Delete();
  }
}

TEST_F(SegmentCall, WriteRequestsAndHandsOverEachHalfOnce) {
  Make();
  calls_.Take();
  EXPECT_EQ(KivWriteSharedMemChunk(&ctx_, segment_, 0, 3, 0, 0, "abc"), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "request 2; ");
  EXPECT_EQ(KivWriteSharedMemChunk(&ctx_, segment_, 0, 3, 0, 0, "def"), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "");
  EXPECT_EQ(KivWriteSharedMemChunkCode(&ctx_, segment_, 0, 4), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "clear 1; ");
  const std::string data(4081, 'x');
  EXPECT_EQ(KivWriteSharedMemChunk(&ctx_, segment_, 0, 4081, 0, 1, data.data()), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "request 2; clear 1; request 2; clear 1; request 2; ");
  EXPECT_EQ(KivWriteSharedMemChunk(&ctx_, segment_, 0, 2040, 0, 0, data.data()), KIV_ST_OK);
  EXPECT_EQ(calls_.Take(), "clear 1; request 2; clear 1; ");
  Delete();
}

// ---- Transfers between threads ----

// Binary semaphores for threads.
class Threaded : public SegmentCalls {
 public:
  Threaded() {
    for (int member = 0; member <= 20; member += 2) given_[member] = true;
  }

  uint32_t Request(KivSdContext*, uint16_t member, KivSdShSemSet*, uint32_t) override {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return given_[member]; });
    given_[member] = false;
    return KIV_ST_OK;
  }
  uint32_t Clear(KivSdContext*, uint16_t member, KivSdShSemSet*) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (given_[member]) return KIV_ST_SEM_CLEAR;
    given_[member] = true;
    changed_.notify_all();
    return KIV_ST_OK;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool given_[21] = {};
};

KivSharedMemSeg EndOf(void* area, uint32_t kind) {
  KivSharedMemSeg end = {};
  end.halfBytes = KIV_SEGMENT_HALF_BYTES;
  end.chunkCount = KIV_SEGMENT_CHUNKS;
  end.kind = kind;
  end.buffer = area;
  return end;
}

TEST(SegmentTransfer, CarriesEveryByteBetweenThreadsInBothDirections) {
  Threaded semaphores;
  std::vector<uint64_t> area(KIV_SEGMENT_AREA_BYTES / sizeof(uint64_t));
  KivSharedMemSeg ends[2] = {EndOf(area.data(), 0), EndOf(area.data(), 1)};
  std::string sent(300'000, '\0');
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<char>(i * 31 + i / 251);
  std::string received[2][2];
  std::vector<std::thread> threads;
  for (const uint32_t kind : {0u, 1u}) {
    for (const int32_t chunk : {0, 4}) {
      threads.emplace_back([&, kind, chunk] {
        EXPECT_EQ(KivWriteSharedMemChunk(nullptr, &ends[kind], chunk,
                                         static_cast<uint32_t>(sent.size()), 1, 1, sent.data()),
                  KIV_ST_OK);
        EXPECT_EQ(KivWriteSharedMemChunkCode(nullptr, &ends[kind], chunk, 5), KIV_ST_OK);
      });
      threads.emplace_back([&, kind, chunk] {
        std::string& data = received[kind][chunk / 4];
        data.resize(sent.size());
        EXPECT_EQ(
            KivReadSharedMemChunk(nullptr, &ends[kind], chunk, static_cast<uint32_t>(data.size()),
                                  0, nullptr, data.data()),
            KIV_ST_OK);
        uint32_t code = 0;
        EXPECT_EQ(KivReadSharedMemChunkCode(nullptr, &ends[kind], chunk, &code), KIV_ST_OK);
        EXPECT_EQ(code, 5u);
      });
    }
  }
  for (std::thread& thread : threads) thread.join();
  for (const auto& ofKind : received) {
    for (const std::string& data : ofKind) EXPECT_TRUE(data == sent);
  }
}

}  // namespace
