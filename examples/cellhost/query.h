// Queries, one a line:
//
//   SUM dimension=member    the sum over all cells with this member
//   TOP dimension count     the members with the largest sums, largest first, ties by name
//   CELL member member ...  one cell, named by a member of each dimension in order
//
// Blank lines, and lines that start with #, say nothing. Words are separated by blanks and tabs;
// a word or a part of it may stand in double quotes, where blanks and = are plain characters and
// a quote is doubled.
#ifndef CELLHOST_QUERY_H
#define CELLHOST_QUERY_H

#include <stdint.h>

#include <string_view>

#include "cube.h"
#include "host_memory.h"
#include "text_lines.h"
#include "text_stack.h"

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

// What is wrong with a query, and what to do.
struct QueryFault {
  char text[160];
};

// From a text to a query.
//
//   text   one line; must stay as long as the query is used
//   stack  receives the query's words
//   fault  set when the text is no query
//
// Whether it is one.
bool ParseQuery(std::string_view text, TextStack* stack, Query* query, QueryFault* fault);

// A file of queries, which owns all their texts.
class QueryFile {
 public:
  QueryFile();

  // Reads and checks all queries. False at the first bad one, which has then been told with its
  // line.
  bool Read(const char* path);

  uint32_t count() const { return queries_.count(); }
  const Query& query(uint32_t number) const { return queries_[number]; }

 private:
  TextLines lines_;
  TextStack words_;
  HostArray<Query> queries_;
};

}  // namespace cellhost

#endif
