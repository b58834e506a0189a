// Runtime files for the tests of file operations.
#ifndef KIV_TESTS_STREAM_H
#define KIV_TESTS_STREAM_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "kivsdu/file.h"
#include "kivsdu/status.h"

namespace kiv::test {

// The runtime's flags as numbers, because the numbers are part of the interface.
constexpr uint32_t kReadOnly = 0;
constexpr uint32_t kWriteOnly = 1;
constexpr uint32_t kReadWrite = 2;
constexpr uint32_t kAppend = 8;
constexpr uint32_t kCreate = 0x100;
constexpr uint32_t kTruncate = 0x200;
constexpr uint32_t kText = 0x4000;
constexpr uint32_t kBinary = 0x8000;
constexpr uint32_t kDenyAll = 0x10;
constexpr uint32_t kDenyWrite = 0x20;
constexpr uint32_t kDenyRead = 0x30;
constexpr uint32_t kDenyNone = 0x40;
constexpr uint32_t kDenySecure = 0x80;  // all if it opens for writing, else writing
constexpr uint32_t kBothPermissions = 0x180;
constexpr uint32_t kFromStart = 0;
constexpr uint32_t kFromHere = 1;
constexpr uint32_t kFromEnd = 2;

// The value of an output before a call.
constexpr uint32_t kUntouched = 4711;

// An open file. Creates the file if it does not exist, and closes it in the destructor. Converts to
// a descriptor.
class Stream {
 public:
  explicit Stream(const std::string& path, uint32_t mode = kBinary) {
    EXPECT_EQ(
        KivSdFileOpen(nullptr, path.c_str(), mode | kReadWrite | kCreate, kBothPermissions, &file_),
        KIV_ST_OK);
  }
  ~Stream() { Close(); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  operator uint32_t() const { return file_; }

  void Close() {
    if (file_ == KIV_FILE_NONE) return;
    EXPECT_EQ(KivSdFileClose(nullptr, file_), KIV_ST_OK);
    file_ = KIV_FILE_NONE;
  }

  void Write(const std::string& bytes) {
    uint32_t count = kUntouched;
    EXPECT_EQ(
        KivSdFileWrite(nullptr, file_, bytes.data(), static_cast<uint32_t>(bytes.size()), &count),
        KIV_ST_OK);
    EXPECT_EQ(count, bytes.size());
  }

  // Reads up to `most` bytes from the position.
  std::string Read(uint32_t most = 100) {
    std::string bytes(most, '?');
    uint32_t count = kUntouched;
    EXPECT_EQ(KivSdFileRead(nullptr, file_, bytes.data(), most, &count), KIV_ST_OK);
    EXPECT_LE(count, most);
    bytes.resize(count);
    return bytes;
  }

  uint64_t Position() {
    uint64_t position = kUntouched;
    EXPECT_EQ(KivSdFileLSeek64(nullptr, file_, 0, kFromHere, &position), KIV_ST_OK);
    return position;
  }

  void MoveTo(int64_t position) {
    EXPECT_EQ(KivSdFileLSeek64(nullptr, file_, position, kFromStart, nullptr), KIV_ST_OK);
  }

 private:
  uint32_t file_ = KIV_FILE_NONE;
};

// The content of a file, byte for byte.
inline std::string ContentOf(const std::string& path) {
  std::string bytes;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  EXPECT_NE(file, nullptr) << path;
  if (file == nullptr) return bytes;
  for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
    bytes.push_back(static_cast<char>(byte));
  }
  std::fclose(file);
  return bytes;
}

// A descriptor that has been closed.
inline uint32_t ClosedDescriptor(const std::string& path) {
  Stream stream(path);
  return stream;
}

}  // namespace kiv::test

#endif
