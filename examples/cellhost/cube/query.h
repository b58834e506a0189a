// Queries, one a line:
//
//   SUM dimension=member    the sum over all cells with this member
//   TOP dimension count     the members with the largest sums, largest first, ties by name
//   CELL member member ...  one cell, named by a member of each dimension in order
//
// of words as in words.h.
#ifndef CELLHOST_CUBE_QUERY_H
#define CELLHOST_CUBE_QUERY_H

#include <stdint.h>

#include <string_view>

#include "cube/cube.h"
#include "cube/text_room.h"
#include "cube/words.h"

namespace cellhost {

enum class QueryKind : uint32_t { kSum, kTop, kCell };

struct Query {
  QueryKind kind;
  std::string_view text;       // as written, without blanks around it
  std::string_view dimension;  // SUM and TOP
  uint32_t topCount;           // TOP; at least 1
  uint32_t memberCount;        // SUM has 1; CELL as many as were written
  std::string_view members[kDimensionsMax];
};

// From a text to a query.
//
//   text   one line; must stay as long as the query is used
//   room   receives the query's words
//   fault  set when the text is no query
//
// Whether it is one.
bool ParseQuery(std::string_view text, TextRoom* room, Query* query, Fault* fault);

}  // namespace cellhost

#endif
