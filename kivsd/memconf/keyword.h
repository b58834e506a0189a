// The keywords of the memory configuration file: what a person wants to know of each. The rules of
// the file are the library's; it reads and checks the values.
#ifndef KIVSD_MEMCONF_KEYWORD_H
#define KIVSD_MEMCONF_KEYWORD_H

#include <cstdint>
#include <span>
#include <string>

#include "memsys/settings.h"

namespace kivsd {

enum class KeywordKind { kSize, kCount, kDigit, kFlag };

struct Keyword {
  const char* name;
  KeywordKind kind;
  const char* about;  // for the comment in a new file
  int64_t (*get)(const kiv::MemorySettings& settings);
};

// In the order in which a new file has them.
std::span<const Keyword> Keywords();

// The keyword that a word is, in upper or lower case, or null.
const Keyword* FindKeyword(const std::string& word);

// The keyword with the fewest different letters, for "did you mean". Null if none is close.
const Keyword* SimilarKeyword(const std::string& word);

bool TakesValue(const Keyword& keyword);

// A setting's value for a person: "4 MiB", "16", "on", "no limit".
std::string ValueText(const Keyword& keyword, const kiv::MemorySettings& settings);

}  // namespace kivsd

#endif
