// The demo's clients; see demo_client.h.
#include "demo/demo_client.h"

#include <stdio.h>

#include <algorithm>

#include "host/complain.h"
#include "host/console_report.h"
#include "host/exit_code.h"

namespace cellhost {
namespace {

constexpr uint32_t kClientLimitMs = 30 * 1000;
constexpr int64_t kAnswersBeforeKill = 10;

ShortText NameOf(uint32_t client) {
  ShortText name;
  snprintf(name.text, sizeof name.text, "Client %u", client);
  return name;
}

// The command line option that selects the road.
const char* OptionOf(Road road) { return road == Road::kSharedMemory ? "--segment" : ""; }

}  // namespace

bool DemoClient::Start(const DemoOptions& options, const ExpectedAnswers& answers,
                       uint32_t number) {
  number_ = number;
  return check_.Read(answers.path, answers.option) &&
         process_.Start(
             {"ask", OptionOf(options.road), "--pipe", options.pipe, "--queries", options.queries});
}

bool DemoClient::CompareAll() {
  std::string_view left = process_.output();
  std::string_view line;
  while (TakeLine(&left, &line)) {
    if (!check_.Compare(line)) return false;
  }
  return true;
}

bool DemoClient::Finish() {
  const TimeLimit limit(kClientLimitMs);
  if (!process_.AwaitEnd(limit) || !CompareAll()) return false;
  const uint32_t exitCode = process_.exitCode();
  Item(NameOf(number_).text, "process %u: %u of %u answers agree, exit code %u", process_.id(),
       agreeing(), expected(), exitCode);
  check_.ShowDifferences("Differences");
  return exitCode == kExitDone && agreeing() == expected();
}

bool LostClient::Start(const DemoOptions& options) {
  return expected_.Read(options.answers.c_str(), "--answers") &&
         process_.Start({"ask", "--endless", OptionOf(options.road), "--pipe", options.pipe,
                         "--queries", options.queries});
}

bool LostClient::AwaitAnswers() {
  const TimeLimit limit(kClientLimitMs);
  for (Pause pause; process_.alive(); pause.Take()) {
    if (!process_.Pump()) return false;
    const std::string_view output = process_.output();
    if (std::count(output.begin(), output.end(), '\n') >= kAnswersBeforeKill) return true;
    if (limit.passed()) {
      return Complain("the server answers too slowly; run 'cellhost serve' and 'ask' to see why");
    }
  }
  return Complain("the client that was to be killed ended before; it asks at least one query");
}

bool LostClient::CompareAll(uint32_t* answers) {
  if (expected_.count() == 0) return Complain("no answers are expected; give some with --answers");
  std::string_view left = process_.output();
  std::string_view line;
  for (*answers = 0; TakeLine(&left, &line); ++*answers) {
    const std::string_view expected = expected_.line(*answers % expected_.count());
    if (line == expected) continue;
    return Complain("answer %u of the lost client is '%.*s' instead of '%.*s'", *answers + 1,
                    static_cast<int>(line.size()), line.data(), static_cast<int>(expected.size()),
                    expected.data());
  }
  return true;
}

bool LostClient::Lose() {
  uint32_t answers = 0;
  if (!AwaitAnswers() || !process_.Kill() || !process_.Pump() || !CompareAll(&answers)) {
    return false;
  }
  Item("Lost client", "process %u: killed after %u answers, which agree", process_.id(), answers);
  return true;
}

}  // namespace cellhost
