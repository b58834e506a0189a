#include "command_line.h"

#include <CLI/CLI.hpp>
#include <functional>

#include "exit_code.h"
#include "info/info_command.h"
#include "kivsdu_version.h"
#include "ls/ls_command.h"
#include "memconf/keyword.h"
#include "memconf/memconf_command.h"
#include "status/status_command.h"
#include "stress/stress_command.h"
#include "top/top_command.h"

namespace kivsd {
namespace {

constexpr char kAbout[] = "Looks into hosts of kivsdu and explains what the library reports.";
constexpr char kExitCodes[] =
    "Exit codes:\n"
    "  0  done\n"
    "  1  the answer is no: nothing found, findings in the file, a failed stress run\n"
    "  2  wrong arguments, or the command could not do its work\n"
    "'kivsd COMMAND --help' lists the options of a command.";

constexpr size_t kColumnWidth = 22;  // of the options in --help

// The subcommand that the arguments choose, with its options bound.
using Action = std::function<int()>;

// Breaks a description into lines that fit beside the options.
std::string Fitted(const std::string& description) {
  std::string lines = Wrapped("", 0, description, kLineWidth - kColumnWidth);
  lines.pop_back();
  return lines;
}

void AddJson(CLI::App* command, Format* format) {
  command->add_flag_callback(
      "--json", [format] { *format = Format::kJson; }, "Print JSON for a program");
}

void AddStatus(CLI::App* app, Action* action) {
  auto options = std::make_shared<StatusOptions>();
  CLI::App* command =
      app->add_subcommand("status", "Explain a status: meaning, what to do, where from");
  command->add_option("status", options->word,
                      "A number, a name or a part of one; without it, all");
  AddJson(command, &options->format);
  command->callback([=] { *action = [=] { return StatusCommand(*options); }; });
}

void AddInfo(CLI::App* app, Action* action) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* command =
      app->add_subcommand("info", "Show the library, the machine and the configuration");
  command->add_option("--suffix", options->suffix,
                      Fitted("The suffix of config.mem that the host passes at its start"));
  AddJson(command, &options->format);
  command->callback([=] { *action = [=] { return InfoCommand(*options); }; });
}

void AddMemconfCheck(CLI::App* memconf, Action* action) {
  auto options = std::make_shared<MemconfCheckOptions>();
  CLI::App* command = memconf->add_subcommand("check", "Check a file as a host would read it");
  command->add_option("file", options->file, "The file, such as bin/config.mem")->required();
  AddJson(command, &options->format);
  command->callback([=] { *action = [=] { return MemconfCheckCommand(*options); }; });
}

void AddValue(CLI::App* command, const Keyword& keyword,
              std::map<std::string, std::string>* values) {
  const std::string name = keyword.name;
  if (keyword.kind == KeywordKind::kFlag) {
    command->add_flag_callback(
        "--" + name, [=] { (*values)[name] = ""; }, Fitted(keyword.about));
  } else if (keyword.kind != KeywordKind::kDigit) {
    command->add_option_function<std::string>(
        "--" + name, [=](const std::string& value) { (*values)[name] = value; },
        Fitted(keyword.about));
  }
}

void AddMemconfNew(CLI::App* memconf, Action* action) {
  auto options = std::make_shared<MemconfNewOptions>();
  CLI::App* command = memconf->add_subcommand("new", "Write a new file with comments");
  command->add_option("file", options->file, "The file; without it, standard output");
  command->add_flag("--ask", options->ask, "Ask for the values that most hosts set");
  command->add_flag("--overwrite", options->overwrite, "Replace an existing file");
  for (const Keyword& keyword : Keywords()) AddValue(command, keyword, &options->values);
  AddJson(command, &options->format);
  command->callback([=] { *action = [=] { return MemconfNewCommand(*options); }; });
}

void AddMemconf(CLI::App* app, Action* action) {
  CLI::App* command = app->add_subcommand("memconf", "Check or write a config.mem");
  command->require_subcommand(1);
  AddMemconfCheck(command, action);
  AddMemconfNew(command, action);
}

void AddLs(CLI::App* app, Action* action) {
  auto options = std::make_shared<LsOptions>();
  CLI::App* command =
      app->add_subcommand("ls", "List named objects, segments and pipes and their owners");
  AddJson(command, &options->format);
  command->callback([=] { *action = [=] { return LsCommand(*options); }; });
}

void AddTop(CLI::App* app, Action* action) {
  auto options = std::make_shared<TopOptions>();
  CLI::App* command = app->add_subcommand("top", "Show the memory of a running host");
  command->add_option("host", options->host,
                      Fitted("Process identifier or name of the host; without it, the only one"));
  command->add_flag("--list", options->list, "List the hosts that publish their memory");
  command->add_option("--count", options->count, "Samples to show; without it, until the host ends")
      ->check(CLI::PositiveNumber)
      ->type_name("N");
  command->add_flag_callback(
      "--once", [=] { options->count = 1; }, "Show one sample, as --count 1");
  command->add_option("--seconds", options->seconds, "Seconds between two samples; 1 without it")
      ->check(CLI::Range(0.01, 86400.0))
      ->type_name("S");
  AddJson(command, &options->format);
  command->callback([=] { *action = [=] { return TopCommand(*options); }; });
}

void AddStress(CLI::App* app, Action* action) {
  auto options = std::make_shared<StressOptions>();
  CLI::App* command = app->add_subcommand("stress", "Use locks, heaps, files and segments at once");
  command->add_option("--seconds", options->seconds, "Seconds to run; 60 without it")
      ->check(CLI::Range(1, 1000000))
      ->type_name("N");
  command
      ->add_option("--threads", options->threads,
                   Fitted("Threads of each subject; without it, as many as processors"))
      ->check(CLI::Range(1, 1000))
      ->type_name("N");
  command
      ->add_option("--only", options->subjects,
                   "Parts to use: locks, heaps, files, segments; all without it")
      ->check(CLI::IsMember({"locks", "heaps", "files", "segments"}))
      ->delimiter(',')
      ->type_name("PART");
  command->add_flag("--tickets", options->tickets, "Ticket locks instead of test-and-set locks");
  AddJson(command, &options->format);
  command->callback([=] { *action = [=] { return StressCommand(*options); }; });
}

// Says which command is unknown. The parser would only say that one is missing.
bool IsUnknownCommand(const CLI::App& app, int count, char** arguments) {
  if (count < 2 || arguments[1][0] == '-') return false;
  const std::string name = arguments[1];
  for (const CLI::App* command : app.get_subcommands({})) {
    if (command->get_name() == name) return false;
  }
  std::fprintf(stderr, "kivsd: there is no command '%s'; 'kivsd --help' lists the commands.\n",
               arguments[1]);
  return true;
}

}  // namespace

int RunCommandLine(int count, char** arguments) {
  CLI::App app(kAbout, "kivsd");
  app.footer(kExitCodes);
  app.set_version_flag("--version", "kivsd " KIVSDU_VERSION_TEXT);
  app.require_subcommand(1);
  app.get_formatter()->column_width(kColumnWidth);
  Action action;
  AddInfo(&app, &action);
  AddLs(&app, &action);
  AddStatus(&app, &action);
  AddMemconf(&app, &action);
  AddTop(&app, &action);
  AddStress(&app, &action);
  if (IsUnknownCommand(app, count, arguments)) return kExitFailed;
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    // The parser also throws for --help, with exit code 0.
    return app.exit(error) == 0 ? kExitDone : kExitFailed;
  }
  return action();
}

}  // namespace kivsd
