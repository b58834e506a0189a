// Direct I/O files for tests, and buffers for their transfers.
#ifndef KIV_TESTS_DIRECT_IO_H
#define KIV_TESTS_DIRECT_IO_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "kivsdu/directio.h"
#include "kivsdu/event.h"
#include "kivsdu/memory.h"
#include "kivsdu/status.h"
#include "support/context.h"

namespace kiv::test {

constexpr uint32_t kBlockBytes = KIV_PAGE_UNIT;

// The words of an open as numbers, because the numbers are part of the interface.
constexpr uint32_t kToRead = 0x80000000;
constexpr uint32_t kToWrite = 0x40000000;
constexpr uint32_t kReadAndWrite = kToRead | kToWrite;
constexpr uint32_t kShareAll = 7;
constexpr uint32_t kOpenExisting = 3;
constexpr uint32_t kOpenAlways = 4;
constexpr uint32_t kOverlapped = 0x40000000;
constexpr uint32_t kUnbuffered = 0x20000000;

// Zeroed blocks that start on a page boundary, which satisfies every sector alignment.
class Blocks {
 public:
  explicit Blocks(uint32_t count) {
    void* pages = nullptr;
    EXPECT_EQ(KivSdAlignedMemAlloc(nullptr, count, &pages), KIV_ST_OK);
    bytes_ = static_cast<unsigned char*>(pages);
  }
  ~Blocks() { EXPECT_EQ(KivSdAlignedMemFree(nullptr, bytes_), KIV_ST_OK); }
  Blocks(const Blocks&) = delete;
  Blocks& operator=(const Blocks&) = delete;

  unsigned char* At(uint32_t block) { return bytes_ + size_t{block} * kBlockBytes; }

  // Fills a block with content that is unique to the number and the seed.
  void Fill(uint32_t block, uint64_t number, uint64_t seed = 0) {
    for (uint64_t word = 0; word < kWords; ++word) {
      const uint64_t value = Word(number, seed, word);
      std::memcpy(At(block) + word * sizeof value, &value, sizeof value);
    }
  }

  bool Holds(uint32_t block, uint64_t number, uint64_t seed = 0) {
    for (uint64_t word = 0; word < kWords; ++word) {
      uint64_t value = 0;
      std::memcpy(&value, At(block) + word * sizeof value, sizeof value);
      if (value != Word(number, seed, word)) return false;
    }
    return true;
  }

 private:
  static constexpr uint64_t kWords = kBlockBytes / sizeof(uint64_t);

  static uint64_t Word(uint64_t number, uint64_t seed, uint64_t word) {
    return (seed << 48) ^ (number << 16) ^ (word + 1);
  }

  unsigned char* bytes_ = nullptr;
};

// A file opened for reading and writing. Creates the file if it does not exist.
class DirectFile {
 public:
  explicit DirectFile(const std::string& path, uint32_t flags = 0) {
    Context ctx;
    CHECK_OK(ctx, KivSdDirectIOFileOpen(ctx, path.c_str(), kReadAndWrite, kShareAll, kOpenAlways,
                                        nullptr, flags, &file_));
  }
  ~DirectFile() { EXPECT_EQ(KivSdDirectIOFileClose(nullptr, file_), KIV_ST_OK); }
  DirectFile(const DirectFile&) = delete;
  DirectFile& operator=(const DirectFile&) = delete;

  operator uint32_t() const { return file_; }

  // Writes one block without a completion record.
  void Write(uint32_t block, uint64_t number, uint64_t seed = 0) {
    Context ctx;
    Blocks blocks(1);
    blocks.Fill(0, number, seed);
    uint32_t count = 0;
    CHECK_OK(ctx, KivSdDirectIOFileWrite(ctx, file_, block, blocks.At(0), 1, nullptr, &count));
    EXPECT_EQ(count, 1u);
  }

  bool Holds(uint32_t block, uint64_t number, uint64_t seed = 0) {
    Context ctx;
    Blocks blocks(1);
    uint32_t count = 0;
    CHECK_OK(ctx, KivSdDirectIOFileRead(ctx, file_, block, blocks.At(0), 1, nullptr, &count));
    return count == 1 && blocks.Holds(0, number, seed);
  }

 private:
  uint32_t file_ = KIV_DIRECTIO_NONE;
};

// An array of completion records. Creates their events, and closes them when it is destroyed.
template <uint32_t kCount>
class Records {
 public:
  Records() { EXPECT_EQ(KivSdDirectIONoWaitCbsInit(nullptr, records_, kCount), KIV_ST_OK); }
  ~Records() { EXPECT_EQ(KivSdDirectIONoWaitCbsTerm(nullptr, records_, kCount), KIV_ST_OK); }
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

  KivSdNoWaitCb& operator[](uint32_t index) { return records_[index]; }

 private:
  KivSdNoWaitCb records_[kCount] = {};
};

// Whether the record's event is signalled within the time.
inline bool IsSignalled(KivSdNoWaitCb& record, uint32_t timeoutMs = 0) {
  return KivSdEventWait(nullptr, &record.event, timeoutMs) == KIV_ST_OK;
}

}  // namespace kiv::test

#endif
