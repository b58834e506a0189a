// Keys from the bytes that a terminal sends.
//
// A key without a character arrives as an escape sequence. Terminals differ in the sequences; the
// decoder knows those of xterm and the programs that follow it, of the VT series, and of the Linux
// console. A lone escape byte is the escape key: only the time until the next byte tells.
#ifndef KIV_OS_LNX_KEYS_H
#define KIV_OS_LNX_KEYS_H

#include <cstddef>
#include <cstdint>

namespace kiv::os {

struct Key {
  bool known;  // false for a sequence that stands for no key
  bool extended;
  uint8_t character;   // of an ordinary key
  uint8_t virtualKey;  // of an ordinary key; 0 if the PC's numbers have none
  uint8_t scanCode;    // of an extended key, as the keyboard sends it
  uint8_t prefix;      // the two bytes of an extended key by the PC convention: shift, control and
  uint8_t prefixedCode;  // alternate change the second one
};

enum class Decoded {
  kNothing,  // no bytes
  kUnclear,  // an escape byte that may be a key, or begin a sequence that is not complete
  kKey,
};

// Bytes that were read and are not yet keys. One thread at a time.
class KeyDecoder {
 public:
  static constexpr size_t kCapacity = 256;

  size_t room() const { return kCapacity - count_; }

  // Adds at most room() bytes.
  void Add(const unsigned char* bytes, size_t count);

  // Removes the next key. If `isWhole`, no more bytes belong to those that are here: an unclear
  // escape byte is then a key.
  Decoded Take(bool isWhole, Key* key);

  // What Take would return.
  Decoded Look(bool isWhole) const;

 private:
  Decoded Read(bool isWhole, Key* key, size_t* length) const;
  Decoded ReadSequence(size_t start, Key* key, size_t* length) const;

  size_t count_ = 0;
  unsigned char bytes_[kCapacity] = {};
};

}  // namespace kiv::os

#endif
