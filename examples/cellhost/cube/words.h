// What queries and orders are made of: a line's words. Words are separated by blanks and tabs; a
// word or a part of it may stand in double quotes, where blanks and = are plain characters and a
// quote is doubled.
#ifndef CELLHOST_CUBE_WORDS_H
#define CELLHOST_CUBE_WORDS_H

#include <stdint.h>

#include <string_view>

#include "cube/cube.h"
#include "cube/text_room.h"
#include "host/complain.h"

namespace cellhost {

// An order has most: a verb, a member of each dimension, and a number.
constexpr uint32_t kWordsMax = 1 + kDimensionsMax + 1;
constexpr std::string_view kBlanks = " \t";
constexpr size_t kNoEquals = static_cast<size_t>(-1);

struct Word {
  std::string_view text;  // without its quotes
  size_t equals;          // place of the first = outside quotes; kNoEquals if there is none
};

struct Words {
  Word word[kWordsMax];
  uint32_t count;
};

// What is wrong with a line, and what to do.
struct Fault {
  char text[160];
  bool noMemory = false;  // it is not the line
};

// Says what is wrong. Always false, to be returned.
CELLHOST_FORMAT(2, 3) bool Wrong(Fault* fault, const char* format, ...);

// Says that there is no memory. Always false, to be returned.
//
//   what  "no memory for the words"
bool NoMemory(Fault* fault, const char* what);

// A text without the blanks around it.
std::string_view Trimmed(std::string_view text);

// Takes a line apart.
//
//   most   so many words at most, up to kWordsMax
//   room   receives the words
//   fault  set when a quote is not closed, when there are too many words, or no memory
//
// Whether it could be done.
bool SplitWords(std::string_view line, uint32_t most, TextRoom* room, Words* words, Fault* fault);

}  // namespace cellhost

#endif
