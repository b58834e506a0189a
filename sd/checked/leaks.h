// The list of blocks that were never freed.
#ifndef KIV_CHECKED_LEAKS_H
#define KIV_CHECKED_LEAKS_H

#include "checked/block_record.h"

namespace kiv::checked {

// Collects blocks by the place that made them.
struct LeakList {
  static constexpr uint32_t kPlaces = 128;

  struct Leaks {
    Place made;
    uint64_t blocks;
    uint64_t bytes;
  };

  Leaks places[kPlaces];
  Leaks others;  // at further places
  uint32_t placeCount;
};

// Adds a block, unless a list has had it before.
void AddLeak(LeakList* list, BlockRecord* record);

// Writes the list to the standard error stream, the most bytes first. Writes nothing if it is
// empty. Ends the process through an assertion if KIV_CHECKED_LEAKS says so.
void WriteLeaks(LeakList* list, const char* when);

}  // namespace kiv::checked

#endif
