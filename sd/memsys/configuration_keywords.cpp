// The keywords of the memory configuration file and the setting of each.
#include <cstdint>

#include "memsys/configuration.h"
#include "memsys/configuration_words.h"
#include "text.h"

namespace kiv {
namespace {

constexpr char kFreedFill[] = "freememoryinit";

// A 32-bit setting stores the low 32 bits of its value.
uint32_t Low32(uint64_t value) { return static_cast<uint32_t>(value); }
int32_t SignedLow32(uint64_t value) { return static_cast<int32_t>(Low32(value)); }

// A limit also turns on what it needs: memory control and thread heaps.
void SetLimit(MemorySettings* settings, uint64_t value) {
  settings->limitBytes = value;
  settings->memoryControl = true;
  if (settings->threadHeaps == 0) settings->threadHeaps = kConfiguredThreadHeaps;
}

// Compatibility: both fill keywords set the fill byte of freed memory. Existing files have them.
void SetFreedFill(MemorySettings* settings, uint64_t value) {
  settings->freedFill = static_cast<uint8_t>(value);
}

struct Keyword {
  const char* name;
  bool (*scan)(const char* word, uint64_t* value);  // null: a flag, no value follows
  const char* complaint;  // the keyword named in the report of a bad value
  void (*set)(MemorySettings* settings, uint64_t value);
};

constexpr Keyword Number(const char* name, void (*set)(MemorySettings*, uint64_t)) {
  return {name, ScanSize, name, set};
}

// Compatibility: a bad value of either fill keyword is reported under the name of the second.
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
