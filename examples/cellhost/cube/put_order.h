// Orders to store a number in a cell:
//
//   PUT member member ... number
//
// with a member of each dimension in order, of words as in words.h.
#ifndef CELLHOST_CUBE_PUT_ORDER_H
#define CELLHOST_CUBE_PUT_ORDER_H

#include <stdint.h>

#include <string_view>

#include "cube/cube.h"
#include "cube/text_room.h"
#include "cube/words.h"

namespace cellhost {

struct PutOrder {
  std::string_view text;  // as written, without blanks around it
  std::string_view cell;  // of this, the members
  uint32_t memberCount;   // as many as were written; at least 1
  std::string_view members[kDimensionsMax];
  double value;
};

// From a text to an order.
//
//   text   one line; must stay as long as the order is used
//   room   receives the order's words
//   fault  set when the text is no order
//
// Whether it is one; whether a cube has such a cell shows when it is carried out.
bool ParsePut(std::string_view text, TextRoom* room, PutOrder* order, Fault* fault);

}  // namespace cellhost

#endif
