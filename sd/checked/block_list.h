// A doubly linked list of block records, in the order in which they were added.
#ifndef KIV_CHECKED_BLOCK_LIST_H
#define KIV_CHECKED_BLOCK_LIST_H

#include <cstdint>

#include "checked/block_record.h"

namespace kiv::checked {

struct BlockList {
  BlockRecord* first;
  BlockRecord* last;
  uint64_t count;
  uint64_t bytes;  // payloads
};

void Append(BlockList* list, BlockRecord* record);
void Remove(BlockList* list, BlockRecord* record);

// Returns null if the list is empty.
BlockRecord* TakeFirst(BlockList* list);

// Moves all records of one list to the end of another.
void AppendAll(BlockList* list, BlockList* added);

}  // namespace kiv::checked

#endif
