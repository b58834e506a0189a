#include "memconf/keyword.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "output.h"
#include "text.h"

namespace kivsd {
namespace {

using kiv::MemorySettings;

constexpr Keyword kKeywords[] = {
    {"numthreadheaps", KeywordKind::kCount,
     "Slots to which threads are distributed, 4 to 64. 0 turns thread heaps off.",
     [](const MemorySettings& s) { return int64_t{s.threadHeaps}; }},
    {"numheaps", KeywordKind::kCount,
     "Thread heaps that may exist in total. Slots and 8 spare heaps exist in any case.",
     [](const MemorySettings& s) { return int64_t{s.heapBudget}; }},
    {"heapsize", KeywordKind::kSize, "Bytes of a thread heap, 512K to 16M.",
     [](const MemorySettings& s) { return int64_t{s.heapBytes}; }},
    {"maxblock", KeywordKind::kSize,
     "Largest request that a heap serves, up to 256K. Larger requests become large blocks.",
     [](const MemorySettings& s) { return int64_t{s.largestBlockBytes}; }},
    {"memorylimit", KeywordKind::kSize,
     "Limit on the manager's memory, from 10M. Without it there is no limit.",
     [](const MemorySettings& s) { return static_cast<int64_t>(s.limitBytes); }},
    {"shortheapsize", KeywordKind::kSize, "Bytes of a short heap, 320K to 16M.",
     [](const MemorySettings& s) { return int64_t{s.shortHeapBytes}; }},
    {"maxshortmemorypoolsize", KeywordKind::kCount, "Maximum of spare short heaps in the pool.",
     [](const MemorySettings& s) { return int64_t{s.shortPoolMost}; }},
    {"limitshortheapsforremove", KeywordKind::kCount,
     "If the pool is larger than this when the last owner ends, all its heaps are freed.",
     [](const MemorySettings& s) { return int64_t{s.shortPoolDrainedAbove}; }},
    {"mallocmemoryinit", KeywordKind::kDigit, "A fill byte; not used.",
     [](const MemorySettings& s) { return int64_t{s.freedFill}; }},
    {"freememoryinit", KeywordKind::kDigit, "A fill byte; not used.",
     [](const MemorySettings& s) { return int64_t{s.freedFill}; }},
    {"nomemorycontrol", KeywordKind::kFlag, "Turns accounting and the limit off.",
     [](const MemorySettings& s) { return int64_t{!s.memoryControl}; }},
    {"memoryblockscontrol", KeywordKind::kFlag, "Counts blocks by size. Slows allocations down.",
     [](const MemorySettings& s) { return int64_t{s.blockStatistics}; }},
    {"shortmemoryoff", KeywordKind::kFlag, "Turns short heaps off.",
     [](const MemorySettings& s) { return int64_t{!s.shortHeaps}; }},
};

constexpr size_t kMostDifferences = 3;

// Insertions, removals and replacements that make one word from the other.
size_t Differences(const std::string& word, const std::string& other) {
  std::vector<size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < word.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 0; j < other.size(); ++j) {
      const bool isEqual = kiv::LowerCase(word[i]) == other[j];
      const size_t above = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, above + 1, diagonal + (isEqual ? 0 : 1)});
      diagonal = above;
    }
  }
  return row.back();
}

}  // namespace

std::span<const Keyword> Keywords() { return kKeywords; }

const Keyword* FindKeyword(const std::string& word) {
  for (const Keyword& keyword : kKeywords) {
    if (kiv::EqualsIgnoringCase(word.c_str(), keyword.name)) return &keyword;
  }
  return nullptr;
}

const Keyword* SimilarKeyword(const std::string& word) {
  const auto differences = [&](const Keyword& keyword) { return Differences(word, keyword.name); };
  const Keyword& closest = *std::ranges::min_element(kKeywords, {}, differences);
  return differences(closest) <= kMostDifferences ? &closest : nullptr;
}

bool TakesValue(const Keyword& keyword) { return keyword.kind != KeywordKind::kFlag; }

std::string ValueText(const Keyword& keyword, const MemorySettings& settings) {
  const int64_t value = keyword.get(settings);
  if (keyword.kind == KeywordKind::kFlag) return value != 0 ? "set" : "not set";
  if (keyword.kind != KeywordKind::kSize) return std::to_string(value);
  if (value == 0 && std::strcmp(keyword.name, "memorylimit") == 0) return "no limit";
  return SizeText(static_cast<uint64_t>(value));
}

}  // namespace kivsd
