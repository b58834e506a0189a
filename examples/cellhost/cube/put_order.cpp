// Parsing of orders; see put_order.h.
#include "cube/put_order.h"

#include "channel/protocol.h"
#include "cube/measure.h"
#include "host/complain.h"
#include "host/words.h"

namespace cellhost {
namespace {

constexpr uint32_t kPutWordsMin = 3;  // the verb, one member and the number
constexpr uint32_t kPutWordsMax = 1 + kDimensionsMax + 1;
static_assert(kPutWordsMax <= kWordsMax);

// Returns the text between the first word and the last. Neither of the two contains blanks.
std::string_view WithoutEnds(std::string_view text) {
  const size_t first = text.find_first_of(kBlanks);
  return Trimmed(text.substr(first, text.find_last_of(kBlanks) - first));
}

}  // namespace

bool ParsePut(std::string_view text, TextRoom* room, PutOrder* order, Fault* fault) {
  *order = {};
  order->text = Trimmed(text);
  Words words;
  if (!SplitWords(order->text, kPutWordsMax, room, &words, fault)) return false;
  if (words.count < kPutWordsMin || words.word[0].text != kPut) {
    return Wrong(fault, "write PUT, a member of each dimension, and a number");
  }
  const std::string_view number = words.word[words.count - 1].text;
  if (!ReadMeasure(number, &order->value)) {
    return Wrong(fault, "'%.*s' is not a number; write it as in 12 or -3.5", ShownLength(number),
                 number.data());
  }
  order->cell = WithoutEnds(order->text);
  for (uint32_t at = 1; at + 1 < words.count; ++at) {
    order->members[order->memberCount++] = words.word[at].text;
  }
  return true;
}

}  // namespace cellhost
