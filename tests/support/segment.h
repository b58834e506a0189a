// Ends of shared memory segments, and access to the shared memory and semaphores without the
// library.
#ifndef KIV_TESTS_SEGMENT_H
#define KIV_TESTS_SEGMENT_H

#include <gtest/gtest.h>
#include <windows.h>

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

// A segment's area, mapped by the test itself.
class AreaView {
 public:
  explicit AreaView(const std::string& name)
      : mapping_(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, name.c_str())),
        bytes_(static_cast<unsigned char*>(
            MapViewOfFile(mapping_, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 20480))) {
    EXPECT_NE(bytes_, nullptr) << name << ": " << GetLastError();
  }
  ~AreaView() {
    UnmapViewOfFile(bytes_);
    CloseHandle(mapping_);
  }
  AreaView(const AreaView&) = delete;
  AreaView& operator=(const AreaView&) = delete;

  std::string all() const { return std::string(reinterpret_cast<char*>(bytes_), 20480); }

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

  HANDLE mapping_;
  unsigned char* bytes_;
};

// A member of a segment's set, opened by its name.
class Member {
 public:
  Member(const std::string& segment, int member)
      : handle_(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE,
                               (segment + "_" + std::to_string(member)).c_str())) {
    EXPECT_NE(handle_, nullptr) << segment << "_" << member;
  }
  ~Member() { CloseHandle(handle_); }
  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  bool Take(uint32_t timeoutMs = 0) const {
    return WaitForSingleObject(handle_, timeoutMs) == WAIT_OBJECT_0;
  }
  bool Give() const { return ReleaseSemaphore(handle_, 1, nullptr) != FALSE; }
  // Whether the member can be taken now. Leaves it unchanged.
  bool IsGiven() const { return Take() && Give(); }

 private:
  HANDLE handle_;
};

inline bool IsGiven(const std::string& segment, int member) {
  return Member(segment, member).IsGiven();
}

inline bool HasMember(const std::string& segment, int member) {
  HANDLE handle =
      OpenSemaphoreA(SYNCHRONIZE, FALSE, (segment + "_" + std::to_string(member)).c_str());
  if (handle != nullptr) CloseHandle(handle);
  return handle != nullptr;
}

inline bool HasArea(const std::string& segment) {
  HANDLE handle = OpenFileMappingA(FILE_MAP_READ, FALSE, segment.c_str());
  if (handle != nullptr) CloseHandle(handle);
  return handle != nullptr;
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
