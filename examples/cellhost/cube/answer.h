// Answers queries from a cube. An answer is one line: the query, a colon, and the result:
//
//   SUM section=libs: 17833030
//   TOP section 2: debug 160314661, doc 48736132
//   CELL libs optional amd64: 15727418
//   SUM colour=red: unknown dimension
//   SUM section=none: unknown member
//   CELL libs optional i386: no data                (the cell does not exist)
//   CELL libs: needs 3 members, one of each dimension
//
// Whole numbers are written in full, others with 12 significant digits.
//
// Any thread with a record, while no other thread changes the cube; see cell_cache.h.
#ifndef CELLHOST_CUBE_ANSWER_H
#define CELLHOST_CUBE_ANSWER_H

#include <string_view>

#include "cube/cube.h"
#include "cube/query.h"

namespace cellhost {

// Answers a query.
//
//   answer  receives the line, in the thread's scratch memory; ResetScratch frees it
//
// Returns false without memory, after reporting it.
bool AnswerQuery(const Cube& cube, const Query& query, std::string_view* answer);

}  // namespace cellhost

#endif
