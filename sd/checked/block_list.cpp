#include "checked/block_list.h"

namespace kiv::checked {

void Append(BlockList* list, BlockRecord* record) {
  record->next = nullptr;
  record->prev = list->last;
  (list->last == nullptr ? list->first : list->last->next) = record;
  list->last = record;
  ++list->count;
  list->bytes += record->sizeBytes;
}

void Remove(BlockList* list, BlockRecord* record) {
  (record->prev == nullptr ? list->first : record->prev->next) = record->next;
  (record->next == nullptr ? list->last : record->next->prev) = record->prev;
  --list->count;
  list->bytes -= record->sizeBytes;
}

BlockRecord* TakeFirst(BlockList* list) {
  BlockRecord* first = list->first;
  if (first != nullptr) Remove(list, first);
  return first;
}

void AppendAll(BlockList* list, BlockList* added) {
  while (BlockRecord* record = TakeFirst(added)) Append(list, record);
}

}  // namespace kiv::checked
