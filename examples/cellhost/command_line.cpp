// The command line; see command_line.h. The parser reports by exceptions, and none of them leaves
// this file.
#include "command_line.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "kivsdu_version.h"

namespace cellhost {
namespace {

constexpr char kAbout[] =
    "cellhost: a slice of a cell server, run by the kivsdu library.\n"
    "It loads a fact table, answers queries from it and compares the answers.\n"
    "Without a command it does 'run'.";

constexpr char kDetails[] =
    "The formats of the files are described in examples/cellhost/README.md.\n"
    "Exit code: 0 done, 1 answers differ, 2 wrong input or a failure.";

constexpr char kDefaultFacts[] = "examples/cellhost/data/facts.csv";
constexpr char kDefaultQueries[] = "examples/cellhost/data/queries.txt";

CLI::App* AddRun(CLI::App* app, RunOptions* run) {
  CLI::App* command = app->add_subcommand("run", "Load facts and answer queries from them");
  run->facts = kDefaultFacts;
  run->queries = kDefaultQueries;
  command->add_option("--facts", run->facts, "CSV file: dimensions, and last the measure")
      ->type_name("FILE")
      ->capture_default_str();
  command->add_option("--queries", run->queries, "Queries, one a line: SUM, TOP or CELL")
      ->type_name("FILE")
      ->capture_default_str();
  command->add_option("--answers", run->answers, "Expected answers; without it none are compared")
      ->type_name("FILE");
  return command;
}

// The parser takes the arguments last first. Options alone belong to `run`.
std::vector<std::string> Reversed(int count, char** arguments) {
  std::vector<std::string> words(arguments + 1, arguments + count);
  constexpr std::string_view kOfTheProgram[] = {"-h", "--help", "--version"};
  const bool forProgram =
      !words.empty() && (!words[0].starts_with('-') ||
                         std::ranges::find(kOfTheProgram, words[0]) != std::end(kOfTheProgram));
  if (!forProgram) words.insert(words.begin(), "run");
  std::ranges::reverse(words);
  return words;
}

}  // namespace

bool ReadCommandLine(int count, char** arguments, CommandLine* line, int* exitCode) {
  CLI::App app(kAbout, "cellhost");
  app.footer(kDetails);
  app.set_version_flag("--version", "cellhost " KIVSDU_VERSION_TEXT);
  app.require_subcommand(0, 1);
  AddRun(&app, &line->run);
  const CLI::App* report = app.add_subcommand("report", "Print the system report alone");
  try {
    app.parse(Reversed(count, arguments));
  } catch (const CLI::ParseError& error) {
    // Help comes as an "error" too, with 0.
    *exitCode = app.exit(error) == 0 ? kExitDone : kExitFailed;
    return false;
  }
  line->command = report->parsed() ? Command::kReport : Command::kRun;
  return true;
}

}  // namespace cellhost
