// Parsing of queries; see query.h.
#include "cube/query.h"

#include <charconv>

#include "host/words.h"

namespace cellhost {
namespace {

constexpr uint32_t kQueryWordsMax = 1 + kDimensionsMax;  // CELL and its members

bool ParseSum(const Words& words, Query* query, Fault* fault) {
  const Word& pair = words.word[1];
  if (words.count != 2 || pair.equals == kNoEquals || pair.equals == 0) {
    return Wrong(fault, "write SUM dimension=member; quote names that have blanks");
  }
  query->kind = QueryKind::kSum;
  query->dimension = pair.text.substr(0, pair.equals);
  query->members[query->memberCount++] = pair.text.substr(pair.equals + 1);
  return true;
}

bool ParseTop(const Words& words, Query* query, Fault* fault) {
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

bool ParseCell(const Words& words, Query* query, Fault* fault) {
  if (words.count == 1) return Wrong(fault, "write CELL and a member of each dimension");
  query->kind = QueryKind::kCell;
  for (uint32_t at = 1; at < words.count; ++at) {
    query->members[query->memberCount++] = words.word[at].text;
  }
  return true;
}

}  // namespace

bool ParseQuery(std::string_view text, TextRoom* room, Query* query, Fault* fault) {
  *query = {};
  query->text = Trimmed(text);
  if (query->text.empty()) return Wrong(fault, "the query is empty; write SUM, TOP or CELL");
  Words words;
  if (!SplitWords(query->text, kQueryWordsMax, room, &words, fault)) return false;
  const std::string_view verb = words.word[0].text;
  if (verb == "SUM") return ParseSum(words, query, fault);
  if (verb == "TOP") return ParseTop(words, query, fault);
  if (verb == "CELL") return ParseCell(words, query, fault);
  return Wrong(fault, "'%.*s' is no query; write SUM, TOP or CELL in capitals",
               static_cast<int>(verb.size()), verb.data());
}

}  // namespace cellhost
