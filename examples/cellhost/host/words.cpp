// Words of a line; see words.h.
#include "host/words.h"

#include <stdarg.h>
#include <stdio.h>

namespace cellhost {
namespace {

// Removes the first word from a text. Returns false if a quote is not closed.
//
//   room  receives the word; as long as the text
bool TakeWord(std::string_view* text, char* room, Word* word) {
  bool quoted = false;
  size_t length = 0;
  size_t at = 0;
  word->equals = kNoEquals;
  for (; at < text->size(); ++at) {
    const char c = (*text)[at];
    if (c == '"') {
      const bool doubled = quoted && text->substr(at + 1).starts_with('"');
      if (!doubled) {
        quoted = !quoted;
        continue;
      }
      ++at;
    } else if (!quoted && kBlanks.find(c) != kBlanks.npos) {
      break;
    } else if (!quoted && c == '=' && word->equals == kNoEquals) {
      word->equals = length;
    }
    room[length++] = c;
  }
  word->text = {room, length};
  text->remove_prefix(at);
  return !quoted;
}

}  // namespace

bool Wrong(Fault* fault, const char* format, ...) {
  va_list values;
  va_start(values, format);
  vsnprintf(fault->text, sizeof fault->text, format, values);
  va_end(values);
  return false;
}

bool NoMemory(Fault* fault, const char* what) {
  fault->noMemory = true;
  return Wrong(fault, "%s", what);
}

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool SplitWords(std::string_view line, uint32_t most, TextRoom* room, Words* words, Fault* fault) {
  words->count = 0;
  for (std::string_view left = Trimmed(line); !left.empty(); left = Trimmed(left)) {
    if (words->count == most) {
      return Wrong(fault, "more than %u words; quote a member that has blanks", most);
    }
    char* start = nullptr;
    if (!room->MakeRoom(left.size(), &start)) return NoMemory(fault, "no memory for the words");
    if (!TakeWord(&left, start, &words->word[words->count++])) {
      return Wrong(fault, "a quote is not closed; add one, or double it if it is part of a name");
    }
  }
  return true;
}

}  // namespace cellhost
