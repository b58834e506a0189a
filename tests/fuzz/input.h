// Shared by the fuzzers: the input as a sequence of choices, and checks that end the program.
#ifndef KIV_TESTS_FUZZ_INPUT_H
#define KIV_TESTS_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kiv::fuzz {

inline void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// The input, consumed piece by piece; reads as zeros after its end.
class Input {
 public:
  Input(const uint8_t* bytes, size_t count) : at_(bytes), end_(bytes + count) {}

  bool IsAtEnd() const { return at_ == end_; }
  uint8_t Byte() { return IsAtEnd() ? uint8_t{0} : *at_++; }
  uint32_t Word() {
    uint32_t word = 0;
    Fill(reinterpret_cast<unsigned char*>(&word), sizeof word);
    return word;
  }
  void Fill(unsigned char* to, size_t count) {
    const size_t taken = std::min(count, static_cast<size_t>(end_ - at_));
    if (taken != 0) std::memcpy(to, at_, taken);
    at_ += taken;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

}  // namespace kiv::fuzz

#endif
