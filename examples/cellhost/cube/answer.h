// Answers queries from a cube, each as one line: the query, a colon, and what there is to say,
//
//   SUM section=libs: 17833030
//   TOP section 2: debug 160314661, doc 48736132
//   CELL libs optional amd64: 15727418
//
// or "unknown dimension", "unknown member", "no data" for members that never meet, and how many
// members a cell needs. Whole numbers are written in full, others with 12 significant digits.
//
// Any thread with a record, while nobody changes the cube: see cell_cache.h.
#ifndef CELLHOST_CUBE_ANSWER_H
#define CELLHOST_CUBE_ANSWER_H

#include <string_view>

#include "cube/cube.h"
#include "cube/query.h"

namespace cellhost {

// Answers a query.
//
//   answer  receives the line, in the thread's scratch memory: use it, then ResetScratch
//
// False when there is no memory, which has then been told.
bool AnswerQuery(const Cube& cube, const Query& query, std::string_view* answer);

}  // namespace cellhost

#endif
