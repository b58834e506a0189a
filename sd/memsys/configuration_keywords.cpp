// The keywords of the memory configuration file, and what each of them sets.
#include <cstdint>

#include "memsys/configuration.h"
#include "memsys/configuration_words.h"
#include "text.h"

namespace kiv {
namespace {

constexpr char kFreedFill[] = "freememoryinit";

// Settings of 32 bits take the lower half of a value.
uint32_t Low32(uint64_t value) { return static_cast<uint32_t>(value); }
int32_t SignedLow32(uint64_t value) { return static_cast<int32_t>(Low32(value)); }

// A limit needs memory control to hold, and heaps to be of use.
void SetLimit(MemorySettings* settings, uint64_t value) {
  settings->limitBytes = value;
  settings->memoryControl = true;
  if (settings->threadHeaps == 0) settings->threadHeaps = kConfiguredThreadHeaps;
}

// Kept: the keyword of either fill byte sets that of freed memory.
void SetFreedFill(MemorySettings* settings, uint64_t value) {
  settings->freedFill = static_cast<uint8_t>(value);
}

struct Keyword {
  const char* name;
  bool (*scan)(const char* word, uint64_t* value);  // null: a flag, no value follows
  const char* complaint;                            // the name told of a value that is not one
  void (*set)(MemorySettings* settings, uint64_t value);
};

constexpr Keyword Number(const char* name, void (*set)(MemorySettings*, uint64_t)) {
  return {name, ScanSize, name, set};
}

// Kept: both complain in the name of the second.
constexpr Keyword Fill(const char* name) { return {name, ScanByte, kFreedFill, SetFreedFill}; }

constexpr Keyword Flag(const char* name, void (*set)(MemorySettings*, uint64_t)) {
  return {name, nullptr, nullptr, set};
}

constexpr Keyword kKeywords[] = {
    Number("numheaps",
           [](MemorySettings* s, uint64_t value) { s->heapBudget = SignedLow32(value); }),
    Number("numthreadheaps",
           [](MemorySettings* s, uint64_t value) { s->threadHeaps = SignedLow32(value); }),
    Number("heapsize", [](MemorySettings* s, uint64_t value) { s->heapBytes = Low32(value); }),
    Number("shortheapsize",
           [](MemorySettings* s, uint64_t value) { s->shortHeapBytes = Low32(value); }),
    Number("maxblock",
           [](MemorySettings* s, uint64_t value) { s->largestBlockBytes = Low32(value); }),
    Number("memorylimit", SetLimit),
    Fill("mallocmemoryinit"),
    Fill(kFreedFill),
    Number("maxshortmemorypoolsize",
           [](MemorySettings* s, uint64_t value) { s->shortPoolMost = SignedLow32(value); }),
    Number(
        "limitshortheapsforremove",
        [](MemorySettings* s, uint64_t value) { s->shortPoolDrainedAbove = SignedLow32(value); }),
    Flag("nomemorycontrol", [](MemorySettings* s, uint64_t) { s->memoryControl = false; }),
    Flag("memoryblockscontrol", [](MemorySettings* s, uint64_t) { s->blockStatistics = true; }),
    Flag("shortmemoryoff", [](MemorySettings* s, uint64_t) { s->shortHeaps = false; }),
};

const Keyword* FindKeyword(const char* word) {
  for (const Keyword& keyword : kKeywords) {
    if (EqualsIgnoringCase(word, keyword.name)) return &keyword;
  }
  return nullptr;
}

void SetFrom(const Keyword& keyword, const char* word, MemorySettings* settings) {
  uint64_t value = 0;
  if (keyword.scan(word, &value)) {
    keyword.set(settings, value);
    return;
  }
  std::printf("\nWrong keyword [%s] in the memory configuration file after keyword [%s]\n", word,
              keyword.complaint);
}

}  // namespace

void ParseMemoryConfiguration(std::FILE* file, MemorySettings* settings) {
  TokenReader words(file);
  while (const char* word = words.Next()) {
    const Keyword* keyword = FindKeyword(word);
    if (keyword == nullptr) {
      std::printf("\nUnknown keyword [%s] in the memory configuration file\n", word);
    } else if (keyword->scan == nullptr) {
      keyword->set(settings, 0);
    } else if (const char* value = words.Next(); value != nullptr) {
      SetFrom(*keyword, value, settings);
    }
  }
}

}  // namespace kiv
