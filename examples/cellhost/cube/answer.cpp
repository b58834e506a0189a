// Answers to queries; see answer.h.
#include "cube/answer.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "host/scratch.h"

namespace cellhost {
namespace {

constexpr int kSignificantDigits = 12;
constexpr size_t kNumberBytes = 400;  // the largest double has 309 digits

constexpr std::string_view kUnknownDimension = "unknown dimension";
constexpr std::string_view kUnknownMember = "unknown member";
constexpr std::string_view kNoData = "no data";

void AddNumber(double value, ScratchText* line) {
  if (value == 0) value = 0;  // turns -0 into 0
  char text[kNumberBytes];
  const bool whole = value == std::trunc(value);
  const std::to_chars_result end =
      whole ? std::to_chars(text, text + sizeof text, value, std::chars_format::fixed)
            : std::to_chars(text, text + sizeof text, value, std::chars_format::general,
                            kSignificantDigits);
  line->Add({text, static_cast<size_t>(end.ptr - text)});
}

// An answer is one line: line ends within a name become blanks.
void AddName(std::string_view name, ScratchText* line) {
  for (size_t end = name.find('\n'); end != name.npos; end = name.find('\n')) {
    line->Add(name.substr(0, end));
    line->Add(" ");
    name.remove_prefix(end + 1);
  }
  line->Add(name);
}

void AnswerSum(const Cube& cube, const Query& query, ScratchText* line) {
  const uint32_t dimension = cube.FindDimension(query.dimension);
  if (dimension == kNoEntry) return line->Add(kUnknownDimension);
  const uint32_t member = cube.dimension(dimension).Find(query.members[0]);
  if (member == kNoEntry) return line->Add(kUnknownMember);

  const CellTable& cells = cube.cells();
  double sum = 0;
  for (uint32_t cell = 0; cell < cells.count(); ++cell) {
    if (cells.coordinate(cell, dimension) == member) sum += cells.value(cell);
  }
  AddNumber(sum, line);
}

// Returns the sum of each member of a dimension, in scratch memory; null without memory.
double* SumMembers(const Cube& cube, uint32_t dimension) {
  const uint32_t members = cube.dimension(dimension).memberCount();
  double* sums = TakeScratchFor<double>(members);
  if (sums == nullptr) return nullptr;
  std::fill_n(sums, members, 0.0);
  const CellTable& cells = cube.cells();
  for (uint32_t cell = 0; cell < cells.count(); ++cell) {
    sums[cells.coordinate(cell, dimension)] += cells.value(cell);
  }
  return sums;
}

// Returns the members of a dimension, in scratch memory. The first `count` are in the order of TOP.
// Null without memory.
uint32_t* OrderMembers(const Dimension& dimension, const double* sums, uint32_t count) {
  const uint32_t members = dimension.memberCount();
  uint32_t* order = TakeScratchFor<uint32_t>(members);
  if (order == nullptr) return nullptr;
  for (uint32_t at = 0; at < members; ++at) order[at] = at;
  std::partial_sort(order, order + count, order + members, [&](uint32_t a, uint32_t b) {
    return sums[a] != sums[b] ? sums[a] > sums[b] : dimension.member(a) < dimension.member(b);
  });
  return order;
}

void AnswerTop(const Cube& cube, const Query& query, ScratchText* line) {
  const uint32_t number = cube.FindDimension(query.dimension);
  if (number == kNoEntry) return line->Add(kUnknownDimension);
  const Dimension& dimension = cube.dimension(number);
  const uint32_t count = std::min(query.topCount, dimension.memberCount());
  const double* sums = SumMembers(cube, number);
  const uint32_t* order = sums == nullptr ? nullptr : OrderMembers(dimension, sums, count);
  if (order == nullptr) return line->Fail();
  for (uint32_t at = 0; at < count; ++at) {
    if (at != 0) line->Add(", ");
    AddName(dimension.member(order[at]), line);
    line->Add(" ");
    AddNumber(sums[order[at]], line);
  }
}

void AnswerCell(const Cube& cube, const Query& query, ScratchText* line) {
  const uint32_t dimensions = cube.dimensionCount();
  if (query.memberCount != dimensions) {
    line->Add("needs ");
    AddNumber(dimensions, line);
    return line->Add(" members, one of each dimension");
  }
  const CellPlace place = cube.Locate(query.members);
  if (!place.known()) return line->Add(kUnknownMember);
  const uint32_t cell = cube.cells().Find(place.coordinates);
  if (cell == kNoEntry) return line->Add(kNoData);
  AddNumber(cube.cells().value(cell), line);
}

}  // namespace

bool AnswerQuery(const Cube& cube, const Query& query, std::string_view* answer) {
  ScratchText line;
  line.Add(query.text);
  line.Add(": ");
  switch (query.kind) {
    case QueryKind::kSum:
      AnswerSum(cube, query, &line);
      break;
    case QueryKind::kTop:
      AnswerTop(cube, query, &line);
      break;
    case QueryKind::kCell:
      AnswerCell(cube, query, &line);
      break;
  }
  *answer = line.text();
  return !line.failed();
}

}  // namespace cellhost
