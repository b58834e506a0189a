// Ends of shared memory segments, and access to the area and the semaphores by their names.
#ifndef KIV_TESTS_SEGMENT_H
#define KIV_TESTS_SEGMENT_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/waiting.h"

namespace kiv::test {

constexpr uint32_t kWritableView = KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE;
constexpr uint32_t kWritablePages = KIV_SHAREDMEM_PAGES_READ_WRITE;

// The members of a segment's set by their meaning.
constexpr int kLockMember = 0;
constexpr int FullMember(int chunk, bool first) { return 4 * chunk + (first ? 1 : 3); }
constexpr int EmptyMember(int chunk, bool first) { return 4 * chunk + (first ? 2 : 4); }

// One end of a segment, the only one in its list. Converts to the descriptor.
class SegmentEnd {
 public:
  SegmentEnd(const std::string& name, uint32_t kind, uint32_t timeoutMs = kLimitMs) {
    uint8_t fresh = 0;
    EXPECT_EQ(KivFindShareMemSeg(nullptr, name.c_str(), kind, &list_, 1, 1, 2, &fresh, nullptr,
                                 &segment_),
              KIV_ST_OK);
    EXPECT_EQ(fresh, 1);
    SetUp(name, kind, timeoutMs);
  }
  ~SegmentEnd() { EXPECT_EQ(KivDeleteSharedMemSeg(nullptr, list_), KIV_ST_OK); }
  SegmentEnd(const SegmentEnd&) = delete;
  SegmentEnd& operator=(const SegmentEnd&) = delete;

  void SetUp(const std::string& name, uint32_t kind, uint32_t timeoutMs) {
    uint32_t id = 0;
    void* view = nullptr;
    EXPECT_EQ(KivCreateSharedMemSeg(nullptr, name.c_str(), kind, kWritableView, kWritablePages,
                                    segment_, timeoutMs, &id, &view),
              KIV_ST_OK);
    EXPECT_EQ(KivSetSharedMemSegBuffer(nullptr, segment_, view), KIV_ST_OK);
  }

  operator KivSharedMemSeg*() const { return segment_; }
  KivSharedMemSeg* operator->() const { return segment_; }

  uint32_t Write(int32_t chunk, const std::string& data, bool end = true, bool split = true) {
    return KivWriteSharedMemChunk(nullptr, segment_, chunk, static_cast<uint32_t>(data.size()),
                                  end ? 1 : 0, split ? 1 : 0, data.data());
  }

  // Reads `length` bytes and returns them. Checks that the status and the code are 0.
  std::string Read(int32_t chunk, size_t length) {
    std::string data(length + 1, '\0');
    uint32_t code = 0;
    EXPECT_EQ(KivReadSharedMemChunk(nullptr, segment_, chunk, static_cast<uint32_t>(length), 0,
                                    &code, data.data()),
              KIV_ST_OK);
    EXPECT_EQ(code, 0u);
    data.resize(length);
    return data;
  }

 private:
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;
};

// A view of a segment's area of its own.
class AreaView {
 public:
  explicit AreaView(const std::string& name) {
    uint32_t id = 0;
    void* view = nullptr;
    EXPECT_EQ(KivSdSharedMemAlloc(nullptr, name.c_str(), KIV_SEGMENT_AREA_BYTES,
                                  KIV_SHAREDMEM_WRITE, 0, &mapping_, &id, &view),
              KIV_ST_OK)
        << name;
    bytes_ = static_cast<unsigned char*>(view);
  }
  ~AreaView() { EXPECT_EQ(KivSdSharedMemFree(nullptr, mapping_, bytes_), KIV_ST_OK); }
  AreaView(const AreaView&) = delete;
  AreaView& operator=(const AreaView&) = delete;

  std::string all() const {
    return std::string(reinterpret_cast<char*>(bytes_), KIV_SEGMENT_AREA_BYTES);
  }

  unsigned char* half(int chunk, bool first) const {
    return bytes_ + 4096 * chunk + (first ? 0 : 2048);
  }
  uint32_t code(int chunk, bool first) const { return WordAt(half(chunk, first)); }
  uint32_t length(int chunk, bool first) const { return WordAt(half(chunk, first) + 4); }
  std::string payload(int chunk, bool first) const {
    return std::string(reinterpret_cast<char*>(half(chunk, first)) + 8, length(chunk, first));
  }

 private:
  static uint32_t WordAt(const unsigned char* bytes) {
    uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
  }

  KivHandle mapping_ = nullptr;
  unsigned char* bytes_ = nullptr;
};

inline std::string MemberName(const std::string& segment, int member) {
  return segment + "_" + std::to_string(member);
}

// A member of a segment's set, opened by its name.
class Member {
 public:
  Member(const std::string& segment, int member) {
    const std::string name = MemberName(segment, member);
    EXPECT_EQ(KivSdCntSemOpen(nullptr, name.c_str(), &handle_), KIV_ST_OK) << name;
  }
  ~Member() { EXPECT_EQ(KivSdCntSemClose(nullptr, &handle_), KIV_ST_OK); }
  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  bool Take(uint32_t timeoutMs = 0) const {
    KivHandle handle = handle_;
    return KivSdCntSemRequest(nullptr, &handle, timeoutMs) == KIV_ST_OK;
  }
  bool Give() const {
    KivHandle handle = handle_;
    return KivSdCntSemClear(nullptr, &handle, 1, nullptr) == KIV_ST_OK;
  }
  // Whether the member can be taken now. Leaves it unchanged.
  bool IsGiven() const { return Take() && Give(); }

 private:
  KivHandle handle_ = nullptr;
};

inline bool IsGiven(const std::string& segment, int member) {
  return Member(segment, member).IsGiven();
}

inline bool HasMember(const std::string& segment, int member) {
  KivHandle handle = nullptr;
  if (KivSdCntSemOpen(nullptr, MemberName(segment, member).c_str(), &handle) != KIV_ST_OK) {
    return false;
  }
  EXPECT_EQ(KivSdCntSemClose(nullptr, &handle), KIV_ST_OK);
  return true;
}

inline bool HasArea(const std::string& segment) {
  KivHandle mapping = nullptr;
  uint32_t id = 0;
  void* view = nullptr;
  if (KivSdSharedMemAlloc(nullptr, segment.c_str(), 0, KIV_SHAREDMEM_READ, 0, &mapping, &id,
                          &view) != KIV_ST_OK) {
    return false;
  }
  EXPECT_EQ(KivSdSharedMemFree(nullptr, mapping, view), KIV_ST_OK);
  return true;
}

// Unmaps a view and leaves its block open.
inline void UnmapView(void* view) {
  // Without a handle only the second step fails.
  EXPECT_EQ(KivSdSharedMemFree(nullptr, nullptr, view), KIV_ST_SHARED_MEM_FREE);
}

// Pseudo-random bytes without a zero byte, different for every seed.
inline std::string Pattern(size_t length, uint32_t seed = 1) {
  std::string bytes(length, '\0');
  uint32_t state = seed * 2654435761u + 1;
  for (char& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<char>((state >> 24) % 255 + 1);
  }
  return bytes;
}

}  // namespace kiv::test

#endif
