// Loading of facts; see fact_loader.h.
#include "cube/fact_loader.h"

#include "cube/measure.h"
#include "host/complain.h"
#include "host/csv_reader.h"
#include "host/progress.h"
#include "host/stopwatch.h"

namespace cellhost {
namespace {

constexpr uint32_t kColumnsMin = 2;  // a dimension and the measure

bool AddHeaderColumn(const CsvReader& reader, uint32_t column, Cube* cube) {
  const std::string_view name = reader.field(column);
  if (name.empty()) {
    return ComplainAt(reader.file().path(), reader.rowLine(), "column %u has no name; give it one",
                      column + 1);
  }
  if (cube->FindDimension(name) != kNoEntry) {
    return ComplainAt(reader.file().path(), reader.rowLine(),
                      "two columns are named '%.*s'; rename one", ShownLength(name), name.data());
  }
  // The last column is the measure.
  return column + 1 == reader.fieldCount() || cube->AddDimension(name);
}

bool ReadHeader(CsvReader* reader, Cube* cube) {
  const CsvStep step = reader->Next();
  if (step == CsvStep::kBad) return false;
  if (step == CsvStep::kEnd) {
    return ComplainAt(reader->file().path(), reader->rowLine(),
                      "the file is empty; its first line has to name the columns");
  }
  const uint32_t columns = reader->fieldCount();
  if (columns < kColumnsMin || columns > kDimensionsMax + 1) {
    return ComplainAt(reader->file().path(), reader->rowLine(),
                      "%u columns; there have to be 1 to %u dimensions and then the measure",
                      columns, kDimensionsMax);
  }
  for (uint32_t column = 0; column < columns; ++column) {
    if (!AddHeaderColumn(*reader, column, cube)) return false;
  }
  return true;
}

bool ReadRowMeasure(const CsvReader& reader, std::string_view text, double* measure) {
  if (ReadMeasure(text, measure)) return true;
  return ComplainAt(reader.file().path(), reader.rowLine(),
                    "measure '%.*s' is not a number; write it as in 12 or -3.5", ShownLength(text),
                    text.data());
}

bool AddRow(const CsvReader& reader, FactParts parts, Cube* cube) {
  const uint32_t dimensions = cube->dimensionCount();
  if (reader.fieldCount() != dimensions + 1) {
    return ComplainAt(reader.file().path(), reader.rowLine(),
                      "%u fields where the first line has %u; add or remove some, or quote a field "
                      "that holds a comma",
                      reader.fieldCount(), dimensions + 1);
  }
  std::string_view members[kDimensionsMax];
  for (uint32_t at = 0; at < dimensions; ++at) {
    members[at] = reader.field(at);
    if (members[at].empty()) {
      return ComplainAt(reader.file().path(), reader.rowLine(),
                        "field %u is empty; name the member", at + 1);
    }
  }
  double measure = 0;
  if (!ReadRowMeasure(reader, reader.field(dimensions), &measure)) return false;
  return parts == FactParts::kAll ? cube->AddFact(members, measure) : cube->AddMembers(members);
}

bool AddRows(CsvReader* reader, FactParts parts, Cube* cube, uint64_t* rows) {
  Progress progress("rows");
  for (;;) {
    const CsvStep step = reader->Next();
    if (step != CsvStep::kRow) return step == CsvStep::kEnd;
    if (!AddRow(*reader, parts, cube)) return false;
    progress.Update(++*rows, reader->file().readBytes(), reader->file().sizeBytes());
  }
}

}  // namespace

bool LoadFacts(const char* path, FactParts parts, Cube* cube, LoadResult* result) {
  *result = {};
  const Stopwatch watch;
  CsvReader reader;
  if (!reader.Open(path, "--facts") || !ReadHeader(&reader, cube) ||
      !AddRows(&reader, parts, cube, &result->rows)) {
    return false;
  }
  result->fileBytes = reader.file().readBytes();
  result->elapsedUs = watch.elapsedUs();
  return true;
}

}  // namespace cellhost
