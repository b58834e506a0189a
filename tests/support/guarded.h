// Buffers and records that are pre-filled and lie between guard bytes. A test sees by them which
// bytes an operation did not write, and whether it wrote outside its output.
#ifndef KIV_TESTS_GUARDED_H
#define KIV_TESTS_GUARDED_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace kiv::test {

constexpr unsigned char kSpoilt = 0xEE;

// The destructor checks the guard bytes.
class GuardedBytes {
 public:
  explicit GuardedBytes(size_t sizeBytes) : bytes_(sizeBytes + 2 * kGuardBytes, kSpoilt) {}

  ~GuardedBytes() {
    EXPECT_TRUE(AllOf(0, kGuardBytes, kSpoilt)) << "written before the buffer";
    EXPECT_TRUE(AllOf(bytes_.size() - kGuardBytes, bytes_.size(), kSpoilt))
        << "written past the buffer";
  }

  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  unsigned char* data() { return bytes_.data() + kGuardBytes; }
  char* text() { return reinterpret_cast<char*>(data()); }
  size_t size() const { return bytes_.size() - 2 * kGuardBytes; }

  // Whether the bytes from `from` up to, but not including, `to` all have the value.
  bool IsAll(unsigned char value, size_t from, size_t to) const {
    return AllOf(kGuardBytes + from, kGuardBytes + to, value);
  }
  bool IsAll(unsigned char value) const { return IsAll(value, 0, size()); }

 private:
  static constexpr size_t kGuardBytes = 32;

  bool AllOf(size_t from, size_t to, unsigned char value) const {
    return std::all_of(bytes_.begin() + static_cast<std::ptrdiff_t>(from),
                       bytes_.begin() + static_cast<std::ptrdiff_t>(to),
                       [value](unsigned char byte) { return byte == value; });
  }

  std::vector<unsigned char> bytes_;
};

// A record of a public header. Converts to a Record*.
template <typename Record>
class Guarded {
 public:
  operator Record*() { return record(); }
  Record* operator->() { return record(); }
  Record& operator*() { return *record(); }

  bool IsAll(unsigned char value) const { return bytes_.IsAll(value); }

 private:
  Record* record() { return reinterpret_cast<Record*>(bytes_.data()); }

  GuardedBytes bytes_{sizeof(Record)};
};

// Checks that a text field holds the text and only zeros behind it.
template <size_t kBytes>
void ExpectField(const char (&field)[kBytes], std::string text) {
  text.resize(kBytes);
  EXPECT_EQ(std::string(field, kBytes), text);
}

// Checks that a buffer holds the text and only zeros behind it.
inline void ExpectText(GuardedBytes& buffer, std::string text) {
  text.resize(buffer.size());
  EXPECT_EQ(std::string(buffer.text(), buffer.size()), text);
}

}  // namespace kiv::test

#endif
