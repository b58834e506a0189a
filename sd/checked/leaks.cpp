#include "checked/leaks.h"

#include <algorithm>
#include <cstdio>

#include "checked/report.h"
#include "checked/settings.h"

namespace kiv::checked {
namespace {

LeakList::Leaks* FindPlace(LeakList* list, const Place& made) {
  LeakList::Leaks* const end = list->places + list->placeCount;
  LeakList::Leaks* found = std::find_if(
      list->places, end, [&made](const LeakList::Leaks& leaks) { return leaks.made == made; });
  if (found != end) return found;
  if (list->placeCount == LeakList::kPlaces) return &list->others;
  ++list->placeCount;
  found->made = made;
  return found;
}

void WriteLine(const LeakList::Leaks& leaks) {
  std::fprintf(stderr, "  %llu bytes in %llu blocks, made at %s:%u\n",
               static_cast<unsigned long long>(leaks.bytes),
               static_cast<unsigned long long>(leaks.blocks), leaks.made.file, leaks.made.line);
}

LeakList::Leaks Sum(const LeakList& list) {
  LeakList::Leaks sum = list.others;
  for (uint32_t i = 0; i < list.placeCount; ++i) {
    sum.blocks += list.places[i].blocks;
    sum.bytes += list.places[i].bytes;
  }
  return sum;
}

}  // namespace

void AddLeak(LeakList* list, BlockRecord* record) {
  if (record->listed) return;
  record->listed = true;
  LeakList::Leaks* leaks = FindPlace(list, record->made);
  ++leaks->blocks;
  leaks->bytes += record->sizeBytes;
}

void WriteLeaks(LeakList* list, const char* when) {
  const LeakList::Leaks sum = Sum(*list);
  if (sum.blocks == 0) return;
  std::fprintf(stderr, "kivsdu: %s, %llu bytes in %llu blocks were never freed:\n", when,
               static_cast<unsigned long long>(sum.bytes),
               static_cast<unsigned long long>(sum.blocks));
  std::sort(list->places, list->places + list->placeCount,
            [](const LeakList::Leaks& one, const LeakList::Leaks& other) {
              return one.bytes > other.bytes;
            });
  for (uint32_t i = 0; i < list->placeCount; ++i) WriteLine(list->places[i]);
  if (list->others.blocks != 0) {
    list->others.made = MakePlace("further places", 0);
    WriteLine(list->others);
  }
  if (LeaksAreFatal()) {
    Fail(list->places[0].made, "%llu blocks of %llu bytes were never freed",
         static_cast<unsigned long long>(sum.blocks), static_cast<unsigned long long>(sum.bytes));
  }
}

}  // namespace kiv::checked
