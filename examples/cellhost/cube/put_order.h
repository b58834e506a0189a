// Orders: each stores a number in a cell.
//
//   PUT member member ... number
//
// The members are one of each dimension, in order. Words are those of words.h.
#ifndef CELLHOST_CUBE_PUT_ORDER_H
#define CELLHOST_CUBE_PUT_ORDER_H

#include <stdint.h>

#include <string_view>

#include "cube/cube.h"
#include "host/text_room.h"
#include "host/words.h"

namespace cellhost {

struct PutOrder {
  std::string_view text;  // as written, without leading and trailing blanks
  std::string_view cell;  // the part of `text` with the members
  uint32_t memberCount;   // number of written members; at least 1
  std::string_view members[kDimensionsMax];
  double value;
};

// Parses an order.
//
//   text   one line; must stay valid as long as the order is used
//   room   receives the order's words
//   fault  set if the text is not an order
//
// Returns whether the text is an order. Does not check whether a cube has these members.
bool ParsePut(std::string_view text, TextRoom* room, PutOrder* order, Fault* fault);

}  // namespace cellhost

#endif
