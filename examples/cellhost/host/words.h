// Splits a line of a query or an order into words, at blanks and tabs. A word or a part of it may
// stand in double quotes: there blanks and = are plain characters, and a quote is doubled.
#ifndef CELLHOST_HOST_WORDS_H
#define CELLHOST_HOST_WORDS_H

#include <stdint.h>

#include <string_view>

#include "host/complain.h"
#include "host/text_room.h"

namespace cellhost {

// The longest line is an order: a verb, a member of each of 16 dimensions, and a number.
constexpr uint32_t kWordsMax = 18;
constexpr std::string_view kBlanks = " \t";
constexpr size_t kNoEquals = static_cast<size_t>(-1);

struct Word {
  std::string_view text;  // without its quotes
  size_t equals;          // index of the first = outside quotes, or kNoEquals
};

struct Words {
  Word word[kWordsMax];
  uint32_t count;
};

// What is wrong with a line, and how to correct it.
struct Fault {
  char text[160];
  bool noMemory = false;  // the line is correct, but memory is lacking
};

// Stores what is wrong. Always returns false, so that callers can return the result.
CELLHOST_FORMAT(2, 3) bool Wrong(Fault* fault, const char* format, ...);

// Stores that memory is lacking. Always returns false.
//
//   what  the message, such as "no memory for the words"
bool NoMemory(Fault* fault, const char* what);

// Returns a text without leading and trailing blanks.
std::string_view Trimmed(std::string_view text);

// Splits a line into words.
//
//   most   maximum number of words, up to kWordsMax
//   room   receives the words
//   fault  set if a quote is not closed, if there are too many words, or without memory
//
// Returns false if the fault was set.
bool SplitWords(std::string_view line, uint32_t most, TextRoom* room, Words* words, Fault* fault);

}  // namespace cellhost

#endif
