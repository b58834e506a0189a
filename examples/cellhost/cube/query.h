// Queries, one a line:
//
//   SUM dimension=member    the sum over all cells with this member
//   TOP dimension count     the members with the largest sums, largest first, ties by name
//   CELL member member ...  one cell, named by a member of each dimension in order
//
// Words are those of words.h.
#ifndef CELLHOST_CUBE_QUERY_H
#define CELLHOST_CUBE_QUERY_H

#include <stdint.h>

#include <string_view>

#include "cube/cube.h"
#include "host/text_room.h"
#include "host/words.h"

namespace cellhost {

enum class QueryKind : uint32_t { kSum, kTop, kCell };

struct Query {
  QueryKind kind;
  std::string_view text;       // as written, without leading and trailing blanks
  std::string_view dimension;  // SUM and TOP
  uint32_t topCount;           // TOP; at least 1
  uint32_t memberCount;        // 1 for SUM; the number of written members for CELL
  std::string_view members[kDimensionsMax];
};

// Parses a query.
//
//   text   one line; must stay valid as long as the query is used
//   room   receives the query's words
//   fault  set if the text is not a query
//
// Returns whether the text is a query.
bool ParseQuery(std::string_view text, TextRoom* room, Query* query, Fault* fault);

}  // namespace cellhost

#endif
