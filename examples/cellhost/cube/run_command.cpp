// `cellhost run`; see run_command.h. Checks all other input before it loads the facts, because
// loading may take long.
#include "cube/run_command.h"

#include <stdio.h>

#include "cube/answer.h"
#include "cube/answer_check.h"
#include "cube/cube.h"
#include "cube/fact_loader.h"
#include "cube/query.h"
#include "host/console_report.h"
#include "host/exit_code.h"
#include "host/line_file.h"
#include "host/scratch.h"
#include "host/stopwatch.h"
#include "host/system_report.h"

namespace cellhost {
namespace {

constexpr double kUsPerSecond = 1e6;

// Number of answered queries and the time spent on them.
struct Served {
  uint32_t queries;
  uint64_t elapsedUs;
};

double PerQuery(const Served& served) {
  return served.queries == 0 ? 0 : static_cast<double>(served.elapsedUs) / served.queries;
}

void PrintDimension(const Dimension& dimension) {
  Item("", "%.*s, %s members", static_cast<int>(dimension.name().size()), dimension.name().data(),
       Grouped(dimension.memberCount()).text);
}

void PrintLoad(const char* path, const Cube& cube, const LoadResult& load) {
  const double seconds = (load.elapsedUs == 0 ? 1 : load.elapsedUs) / kUsPerSecond;
  const double rowsPerSecond = static_cast<double>(load.rows) / seconds;
  Heading("Facts");
  Item("File", "%s, %s", path, SizeOfBytes(load.fileBytes).text);
  Item("Rows", "%s in %.3f s, %s a second", Grouped(load.rows).text, seconds,
       Grouped(static_cast<uint64_t>(rowsPerSecond)).text);
  Item("Dimensions", "%u", cube.dimensionCount());
  for (uint32_t at = 0; at < cube.dimensionCount(); ++at) PrintDimension(cube.dimension(at));
  Item("Cells", "%s", Grouped(cube.cells().count()).text);
  Item("Memory held", "%s", SizeOfBytes(cube.bytesHeld()).text);
}

// Answers one query, prints the answer and compares it. Times only the answering.
bool Serve(const Cube& cube, const Query& query, AnswerCheck* check, Served* served) {
  const Stopwatch watch;
  std::string_view answer;
  const bool answered = AnswerQuery(cube, query, &answer);
  const uint32_t elapsedUs = watch.elapsedUs();
  if (!answered) return false;

  ++served->queries;
  served->elapsedUs += elapsedUs;
  printf("  %6u us  %.*s\n", elapsedUs, static_cast<int>(answer.size()), answer.data());
  const bool compared = check == nullptr || check->Compare(answer);
  ResetScratch();
  return compared;
}

bool ServeAll(const Cube& cube, const LineFile<Query>& queries, AnswerCheck* check) {
  Heading("Answers");
  Served served = {};
  for (uint32_t at = 0; at < queries.count(); ++at) {
    if (!Serve(cube, queries.item(at), check, &served)) return false;
  }
  Heading("Timing");
  Item("Queries", "%u in %s us, %.1f us each", served.queries, Grouped(served.elapsedUs).text,
       PerQuery(served));
  return true;
}

}  // namespace

int RunCommand(const RunOptions& options) {
  PrintSystemReport();

  LineFile<Query> queries(ParseQuery);
  AnswerCheck expected;
  AnswerCheck* check = options.answers.empty() ? nullptr : &expected;
  if (!queries.Read(options.queries.c_str(), "--queries")) return kExitFailed;
  if (check != nullptr && !check->Read(options.answers.c_str(), "--answers")) return kExitFailed;

  Cube cube;
  LoadResult load;
  if (!LoadFacts(options.facts.c_str(), FactParts::kAll, &cube, &load)) return kExitFailed;
  PrintLoad(options.facts.c_str(), cube, load);

  if (!ServeAll(cube, queries, check)) return kExitFailed;
  if (check == nullptr || check->Conclude()) return kExitDone;
  return kExitAnswersDiffer;
}

}  // namespace cellhost
