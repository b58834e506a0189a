// From lines to queries; see query.h.
#include "query.h"

#include <stdarg.h>
#include <stdio.h>

#include <charconv>

#include "complain.h"

namespace cellhost {
namespace {

constexpr char kSource[] = "cellhost/query";
constexpr std::string_view kBlanks = " \t";
constexpr uint32_t kWordsMax = 1 + kDimensionsMax;  // CELL and its members
constexpr size_t kNoEquals = static_cast<size_t>(-1);

struct Word {
  std::string_view text;  // without its quotes
  size_t equals;          // place of the first = outside quotes; kNoEquals if there is none
};

struct Words {
  Word word[kWordsMax];
  uint32_t count;
};

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Takes a word off the front of a text. False if a quote is not closed.
//
//   room  for the word; as long as the text
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

// Says what is wrong with a query. Always false, to be returned.
CELLHOST_FORMAT(2, 3) bool Wrong(QueryFault* fault, const char* format, ...) {
  va_list values;
  va_start(values, format);
  vsnprintf(fault->text, sizeof fault->text, format, values);
  va_end(values);
  return false;
}

bool SplitWords(std::string_view text, TextStack* stack, Words* words, QueryFault* fault) {
  words->count = 0;
  for (std::string_view left = text; !left.empty(); left = Trimmed(left)) {
    if (words->count == kWordsMax) {
      return Wrong(fault, "more than %u words; quote a member that has blanks", kWordsMax);
    }
    char* room = nullptr;
    if (!stack->MakeRoom(left.size(), &room)) return Wrong(fault, "no memory for the query");
    if (!TakeWord(&left, room, &words->word[words->count++])) {
      return Wrong(fault, "a quote is not closed; add one, or double it if it is part of a name");
    }
  }
  return true;
}

bool ParseSum(const Words& words, Query* query, QueryFault* fault) {
  const Word& pair = words.word[1];
  if (words.count != 2 || pair.equals == kNoEquals || pair.equals == 0) {
    return Wrong(fault, "write SUM dimension=member; quote names that have blanks");
  }
  query->kind = QueryKind::kSum;
  query->dimension = pair.text.substr(0, pair.equals);
  query->members[query->memberCount++] = pair.text.substr(pair.equals + 1);
  return true;
}

bool ParseTop(const Words& words, Query* query, QueryFault* fault) {
  const std::string_view count = words.count == 3 ? words.word[2].text : std::string_view();
  const char* end = count.data() + count.size();
  const auto [stop, error] = std::from_chars(count.data(), end, query->topCount);
  if (words.count != 3 || error != std::errc() || stop != end || query->topCount == 0) {
    return Wrong(fault, "write TOP dimension count, with a whole number from 1 on");
  }
  query->kind = QueryKind::kTop;
  query->dimension = words.word[1].text;
  return true;
}

bool ParseCell(const Words& words, Query* query, QueryFault* fault) {
  if (words.count == 1) return Wrong(fault, "write CELL and a member of each dimension");
  query->kind = QueryKind::kCell;
  for (uint32_t at = 1; at < words.count; ++at) {
    query->members[query->memberCount++] = words.word[at].text;
  }
  return true;
}

}  // namespace

bool ParseQuery(std::string_view text, TextStack* stack, Query* query, QueryFault* fault) {
  *query = {};
  query->text = Trimmed(text);
  if (query->text.empty()) return Wrong(fault, "the query is empty; write SUM, TOP or CELL");
  Words words;
  if (!SplitWords(query->text, stack, &words, fault)) return false;
  const std::string_view verb = words.word[0].text;
  if (verb == "SUM") return ParseSum(words, query, fault);
  if (verb == "TOP") return ParseTop(words, query, fault);
  if (verb == "CELL") return ParseCell(words, query, fault);
  return Wrong(fault, "'%.*s' is no query; write SUM, TOP or CELL in capitals",
               static_cast<int>(verb.size()), verb.data());
}

QueryFile::QueryFile() : queries_(kSource) {}

bool QueryFile::Read(const char* path) {
  if (!lines_.Read(path, "--queries")) return false;
  for (uint32_t at = 0; at < lines_.count(); ++at) {
    const std::string_view text = Trimmed(lines_.line(at));
    if (text.empty() || text.starts_with('#')) continue;
    Query query;
    QueryFault fault;
    if (!ParseQuery(text, &words_, &query, &fault)) {
      return ComplainAt(path, at + 1, "%s", fault.text);
    }
    if (!queries_.Append(query)) return false;
  }
  return true;
}

}  // namespace cellhost
