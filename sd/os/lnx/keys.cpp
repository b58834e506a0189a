#include "os/lnx/keys.h"

#include <algorithm>
#include <cstring>

namespace kiv::os {
namespace {

constexpr unsigned char kEscape = 27;
constexpr size_t kLongestSequence = 32;  // longer ones are no keys
constexpr size_t kMostParameters = 2;    // of a key

// ---- Extended keys ----

// Keys and what they send with no other key, with shift, with control, and with the alternate key.
struct ExtendedKey {
  uint8_t scanCode;
  bool isPlainPrefixZero;  // the prefix of the first three is 0 and not 224
  bool isAlternatePrefixZero;
  uint8_t codes[4];
};

constexpr ExtendedKey kHome = {71, false, true, {71, 71, 119, 151}};
constexpr ExtendedKey kUp = {72, false, true, {72, 72, 141, 152}};
constexpr ExtendedKey kPageUp = {73, false, true, {73, 73, 134, 153}};
constexpr ExtendedKey kLeft = {75, false, true, {75, 75, 115, 155}};
constexpr ExtendedKey kRight = {77, false, true, {77, 77, 116, 157}};
constexpr ExtendedKey kEnd = {79, false, true, {79, 79, 117, 159}};
constexpr ExtendedKey kDown = {80, false, true, {80, 80, 145, 160}};
constexpr ExtendedKey kPageDown = {81, false, true, {81, 81, 118, 161}};
constexpr ExtendedKey kInsert = {82, false, true, {82, 82, 146, 162}};
constexpr ExtendedKey kDelete = {83, false, true, {83, 83, 147, 163}};
constexpr ExtendedKey kF11 = {87, false, false, {133, 135, 137, 139}};
constexpr ExtendedKey kF12 = {88, false, false, {134, 136, 138, 140}};

constexpr ExtendedKey FunctionKey(unsigned number) {
  const auto at = [number](unsigned first) { return static_cast<uint8_t>(first + number - 1); };
  if (number == 11) return kF11;
  if (number == 12) return kF12;
  return {at(59), true, true, {at(59), at(84), at(94), at(104)}};
}

// Bits of a sequence's second parameter less 1.
constexpr unsigned kShift = 1;
constexpr unsigned kAlternate = 2;
constexpr unsigned kControl = 4;

size_t ColumnOf(unsigned modifiers) {
  if ((modifiers & kAlternate) != 0) return 3;
  if ((modifiers & kControl) != 0) return 2;
  return (modifiers & kShift) != 0 ? 1 : 0;
}

Key Extended(const ExtendedKey& key, unsigned modifiers) {
  const size_t column = ColumnOf(modifiers);
  const bool isZero = column == 3 ? key.isAlternatePrefixZero : key.isPlainPrefixZero;
  return {
      true, true, 0, 0, key.scanCode, static_cast<uint8_t>(isZero ? 0 : 224), key.codes[column]};
}

// ---- Sequences ----

// The key of a sequence that ends with a letter; null if there is none.
const ExtendedKey* KeyOfLetter(unsigned char letter) {
  static constexpr ExtendedKey kF1To4[] = {FunctionKey(1), FunctionKey(2), FunctionKey(3),
                                           FunctionKey(4)};
  switch (letter) {
    case 'A':
      return &kUp;
    case 'B':
      return &kDown;
    case 'C':
      return &kRight;
    case 'D':
      return &kLeft;
    case 'F':
      return &kEnd;
    case 'H':
      return &kHome;
    default:
      return letter >= 'P' && letter <= 'S' ? &kF1To4[letter - 'P'] : nullptr;
  }
}

// The key of a sequence "ESC [ number ~".
const ExtendedKey* KeyOfNumber(unsigned number) {
  static constexpr ExtendedKey kEditing[] = {kHome,   kInsert,   kDelete, kEnd,
                                             kPageUp, kPageDown, kHome,   kEnd};
  static constexpr ExtendedKey kFunctions[] = {FunctionKey(1),  FunctionKey(2),  FunctionKey(3),
                                               FunctionKey(4),  FunctionKey(5),  FunctionKey(6),
                                               FunctionKey(7),  FunctionKey(8),  FunctionKey(9),
                                               FunctionKey(10), FunctionKey(11), FunctionKey(12)};
  if (number >= 1 && number <= 8) return &kEditing[number - 1];
  if (number >= 11 && number <= 15) return &kFunctions[number - 11];
  if (number >= 17 && number <= 21) return &kFunctions[number - 12];
  if (number >= 23 && number <= 24) return &kFunctions[number - 13];
  return nullptr;
}

Key FromSequence(const ExtendedKey* key, unsigned modifiers) {
  return key == nullptr ? Key{} : Extended(*key, modifiers);
}

struct Parameters {
  bool areOfAKey;  // other sequences have more numbers, or other signs
  unsigned numbers[kMostParameters];
};

// The numbers between the introducer and the last byte, separated by semicolons.
Parameters ReadParameters(const unsigned char* bytes, size_t count) {
  Parameters parameters = {};
  size_t index = 0;
  for (size_t i = 0; i < count; ++i) {
    if (bytes[i] == ';') {
      if (++index == kMostParameters) return parameters;
      continue;
    }
    unsigned& number = parameters.numbers[index];
    if (bytes[i] < '0' || bytes[i] > '9' || number > 100) return parameters;
    number = number * 10 + bytes[i] - '0';
  }
  parameters.areOfAKey = true;
  return parameters;
}

// The key of a sequence with these parameters and this last byte; null if there is none. The first
// number of a sequence that ends with a letter is 1: with others, "R" reports the cursor's place.
const ExtendedKey* KeyOf(const Parameters& parameters, unsigned char last) {
  if (!parameters.areOfAKey) return nullptr;
  if (last == '~') return KeyOfNumber(parameters.numbers[0]);
  return parameters.numbers[0] <= 1 ? KeyOfLetter(last) : nullptr;
}

bool IsLast(unsigned char byte) { return byte >= 0x40 && byte <= 0x7E; }
bool IsInside(unsigned char byte) { return byte >= 0x20 && byte < 0x40; }

// ---- Ordinary keys ----

// The PC's number of the key that types a character on the American keyboard.
uint8_t VirtualKeyOf(unsigned char character) {
  static constexpr char kTyped[] = ";:=+,<-_.>/?`~[{\\|]}'\"!@#$%^&*()";
  static constexpr unsigned char kNumbers[] = {0xBA, 0xBA, 0xBB, 0xBB, 0xBC, 0xBC, 0xBD, 0xBD,
                                               0xBE, 0xBE, 0xBF, 0xBF, 0xC0, 0xC0, 0xDB, 0xDB,
                                               0xDC, 0xDC, 0xDD, 0xDD, 0xDE, 0xDE, '1',  '2',
                                               '3',  '4',  '5',  '6',  '7',  '8',  '9',  '0'};
  static_assert(sizeof kTyped - 1 == sizeof kNumbers);
  constexpr char kKeysOfTheirOwn[] = {8, 9, 13, kEscape, ' '};
  if (std::memchr(kKeysOfTheirOwn, character, sizeof kKeysOfTheirOwn) != nullptr) return character;
  if (character >= '0' && character <= '9') return character;
  if (character >= 'a' && character <= 'z') return static_cast<uint8_t>(character - 'a' + 'A');
  if (character >= 'A' && character <= 'Z') return character;
  if (character >= 1 && character <= 26) return static_cast<uint8_t>(character + 'A' - 1);
  const void* found = std::memchr(kTyped, character, sizeof kNumbers);
  return found == nullptr ? 0 : kNumbers[static_cast<const char*>(found) - kTyped];
}

Key Ordinary(unsigned char byte) { return {true, false, byte, VirtualKeyOf(byte), 0, 0, 0}; }

}  // namespace

void KeyDecoder::Add(const unsigned char* bytes, size_t count) {
  std::memcpy(bytes_ + count_, bytes, count);
  count_ += count;
}

Decoded KeyDecoder::Take(bool isWhole, Key* key) {
  size_t length = 0;
  const Decoded decoded = Read(isWhole, key, &length);
  if (decoded != Decoded::kKey) return decoded;
  std::memmove(bytes_, bytes_ + length, count_ - length);
  count_ -= length;
  return decoded;
}

Decoded KeyDecoder::Look(bool isWhole) const {
  Key ignored;
  size_t length = 0;
  return Read(isWhole, &ignored, &length);
}

Decoded KeyDecoder::Read(bool isWhole, Key* key, size_t* length) const {
  if (count_ == 0) return Decoded::kNothing;
  *key = Ordinary(bytes_[0]);
  *length = 1;
  if (bytes_[0] != kEscape) return Decoded::kKey;
  if (count_ == 1) return isWhole ? Decoded::kKey : Decoded::kUnclear;
  if (bytes_[1] != '[' && bytes_[1] != 'O') return Decoded::kKey;
  const Decoded decoded = ReadSequence(2, key, length);
  return decoded == Decoded::kUnclear && isWhole ? Decoded::kKey : decoded;
}

// The bytes after "ESC [" or "ESC O". Without a sequence, the escape byte is a key by itself.
Decoded KeyDecoder::ReadSequence(size_t start, Key* key, size_t* length) const {
  const bool isLinuxFunction = count_ > start && bytes_[1] == '[' && bytes_[start] == '[';
  size_t last = isLinuxFunction ? start + 1 : start;
  const size_t most = std::min(count_, kLongestSequence);
  if (!isLinuxFunction) {
    while (last < most && IsInside(bytes_[last])) ++last;
  }
  if (last >= kLongestSequence) return Decoded::kKey;
  if (last >= count_) return Decoded::kUnclear;
  if (!IsLast(bytes_[last])) return Decoded::kKey;

  *length = last + 1;
  const unsigned char letter = bytes_[last];
  if (isLinuxFunction) {
    const bool isFunction = letter >= 'A' && letter <= 'E';
    *key = isFunction ? Extended(FunctionKey(letter - 'A' + 1u), 0) : Key{};
    return Decoded::kKey;
  }
  const Parameters parameters = ReadParameters(bytes_ + start, last - start);
  const unsigned second = parameters.numbers[1];
  const unsigned modifiers = second == 0 ? 0 : second - 1;
  *key = FromSequence(KeyOf(parameters, letter), modifiers);
  return Decoded::kKey;
}

}  // namespace kiv::os
