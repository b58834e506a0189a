// The command line; see command_line.h. The parser throws exceptions; none leaves this file.
#include "command_line.h"

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "channel/protocol.h"
#include "host/exit_code.h"
#include "kivsdu_version.h"

namespace cellhost {
namespace {

constexpr char kAbout[] =
    "cellhost: an example server that uses the kivsdu library.\n"
    "It loads a fact table, answers queries about it and compares the answers.\n"
    "The default command is 'run'.";

constexpr char kDetails[] =
    "examples/cellhost/README.md describes the formats of the files.\n"
    "Exit code: 0 done, 1 answers differ, 2 wrong input or a failure.";

constexpr char kDefaultFacts[] = "examples/cellhost/data/facts.csv";
constexpr char kDefaultQueries[] = "examples/cellhost/data/queries.txt";
constexpr char kDefaultAnswers[] = "examples/cellhost/data/answers.txt";
constexpr char kDefaultPuts[] = "examples/cellhost/data/puts.txt";
constexpr char kDefaultAnswersAfter[] = "examples/cellhost/data/answers-after.txt";

constexpr uint32_t kWaitSecondsMax = 600;

void AddFacts(CLI::App* command, std::string* facts) {
  *facts = kDefaultFacts;
  command->add_option("--facts", *facts, "CSV file: dimensions, and last the measure")
      ->type_name("FILE")
      ->capture_default_str();
}

void AddQueries(CLI::App* command, std::string* queries) {
  *queries = kDefaultQueries;
  command->add_option("--queries", *queries, "Queries, one a line: SUM, TOP or CELL")
      ->type_name("FILE")
      ->capture_default_str();
}

CLI::Option* AddAnswers(CLI::App* command, std::string* answers, const char* text) {
  return command->add_option("--answers", *answers, text)->type_name("FILE");
}

// The library requires a pipe name without slashes.
CLI::Option* AddPipe(CLI::App* command, std::string* pipe) {
  const auto isName = [](const std::string& name) {
    const bool bad = name.empty() || name.find_first_of("/\\") != name.npos;
    return std::string(bad ? "a pipe's name has no slashes and is not empty" : "");
  };
  return command->add_option("--pipe", *pipe, "Name of the control pipe")
      ->type_name("NAME")
      ->check(isName);
}

void AddRoad(CLI::App* command, Road* road, const char* text) {
  *road = Road::kPipe;
  command->add_flag_callback(
      "--segment", [road] { *road = Road::kSharedMemory; }, text);
}

void AddClient(CLI::App* command, std::string* pipe, Road* road, uint32_t* waitSeconds) {
  *pipe = kDefaultPipe;
  AddRoad(command, road, "Ask over shared memory instead of the pipe");
  *waitSeconds = 0;
  AddPipe(command, pipe)->capture_default_str();
  command->add_option("--wait", *waitSeconds, "How long to wait for the server to start")
      ->type_name("SECONDS")
      ->check(CLI::Range(0u, kWaitSecondsMax))
      ->capture_default_str();
}

void AddLocks(CLI::App* command, LockDesign* locks) {
  const std::map<std::string, LockDesign> designs = {{kTestAndSetName, LockDesign::kTestAndSet},
                                                     {kTicketName, LockDesign::kTicket}};
  command->add_option("--locks", *locks, "Design of the server's spinlocks")
      ->type_name("test-and-set|ticket")
      ->transform(CLI::CheckedTransformer(designs))
      ->default_str(kTestAndSetName);
}

void AddFailover(CLI::App* command, bool* failover) {
  *failover = false;
  command->add_flag("--failover", *failover,
                    "Failover mode: the library calls the server's lease guard");
}

void AddMemory(CLI::App* command, std::string* memory) {
  command
      ->add_option("--memory", *memory,
                   "Folder with bin/config.mem, which configures the memory manager; without "
                   "this option, the folder that MOLTAPATH names")
      ->type_name("FOLDER")
      ->check(CLI::ExistingDirectory);
}

void AddData(CLI::App* command, std::string* data) {
  command
      ->add_option("--data", *data,
                   "Folder for the cells' files; made if missing. Without this option, the cells "
                   "are those of the facts and are lost at the end")
      ->type_name("FOLDER");
}

void AddPublish(CLI::App* command, bool* publish) {
  command->add_flag("--publish", *publish, "Show the memory in use to 'kivsd top'");
}

void AddRun(CLI::App* app, RunOptions* run, std::string* memory, bool* publish) {
  CLI::App* command = app->add_subcommand("run", "Load facts and answer queries from them");
  AddFacts(command, &run->facts);
  AddQueries(command, &run->queries);
  AddAnswers(command, &run->answers,
             "Expected answers; without this option, answers are not compared");
  AddMemory(command, memory);
  AddPublish(command, publish);
}

void AddServe(CLI::App* app, ServeOptions* serve, LockDesign* locks, bool* failover,
              std::string* memory, bool* publish) {
  CLI::App* command = app->add_subcommand("serve", "Load facts and serve clients over a pipe");
  AddFacts(command, &serve->facts);
  serve->pipe = kDefaultPipe;
  AddPipe(command, &serve->pipe)->capture_default_str();
  AddLocks(command, locks);
  AddFailover(command, failover);
  AddMemory(command, memory);
  AddPublish(command, publish);
  AddData(command, &serve->data);
}

void AddAsk(CLI::App* app, AskOptions* ask) {
  CLI::App* command = app->add_subcommand("ask", "Ask a server the queries");
  AddClient(command, &ask->pipe, &ask->road, &ask->waitSeconds);
  AddQueries(command, &ask->queries);
  CLI::Option* answers = AddAnswers(command, &ask->answers,
                                    "Expected answers; without this option, answers are printed");
  ask->endless = false;
  command->add_flag("--endless", ask->endless, "Repeat the queries until the program is ended")
      ->excludes(answers);
}

void AddSend(CLI::App* app, SendOptions* send) {
  CLI::App* command = app->add_subcommand("send", "Send a server one command, print the reply");
  AddClient(command, &send->pipe, &send->road, &send->waitSeconds);
  command
      ->add_option("command", send->command,
                   "CHUNK, STATS, STOP, BACKUP, QUERY <query>, PUT <members> <number> or HOG <MiB>")
      ->required();
}

void AddDemo(CLI::App* app, DemoOptions* demo, LockDesign* locks) {
  CLI::App* command = app->add_subcommand(
      "demo", "Run a server and clients; kill a client; change cells from several clients");
  AddFacts(command, &demo->facts);
  AddQueries(command, &demo->queries);
  demo->answers = kDefaultAnswers;
  AddAnswers(command, &demo->answers, "Expected answers")->capture_default_str();
  demo->pipe = kDefaultPipe;
  AddPipe(command, &demo->pipe)->capture_default_str();
  demo->puts = kDefaultPuts;
  command->add_option("--puts", demo->puts, "Orders to change cells, one a line, no cell twice")
      ->type_name("FILE")
      ->capture_default_str();
  demo->answersAfter = kDefaultAnswersAfter;
  command->add_option("--answers-after", demo->answersAfter, "Expected answers after the changes")
      ->type_name("FILE")
      ->capture_default_str();
  AddRoad(command, &demo->road, "The clients ask over shared memory instead of the pipe");
  AddLocks(command, locks);
  AddFailover(command, &demo->failover);
  AddMemory(command, &demo->memory);
  demo->inMemory = false;
  command->add_flag("--in-memory", demo->inMemory,
                    "The server keeps its cells only in memory: no backups, no killed server");
}

Command CommandOf(const CLI::App& app) {
  if (app.got_subcommand("report")) return Command::kReport;
  if (app.got_subcommand("serve")) return Command::kServe;
  if (app.got_subcommand("ask")) return Command::kAsk;
  if (app.got_subcommand("send")) return Command::kSend;
  if (app.got_subcommand("demo")) return Command::kDemo;
  return Command::kRun;
}

// The parser takes the arguments in reverse order. Without a command, the options are those of
// `run`.
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
  line->publish = false;
  AddRun(&app, &line->run, &line->memory, &line->publish);
  app.add_subcommand("report", "Print the system report alone");
  line->locks = LockDesign::kTestAndSet;
  bool failover = false;
  AddServe(&app, &line->serve, &line->locks, &failover, &line->memory, &line->publish);
  AddAsk(&app, &line->ask);
  AddSend(&app, &line->send);
  AddDemo(&app, &line->demo, &line->locks);
  try {
    app.parse(Reversed(count, arguments));
  } catch (const CLI::ParseError& error) {
    // The parser also throws for --help, with exit code 0.
    *exitCode = app.exit(error) == 0 ? kExitDone : kExitFailed;
    return false;
  }
  line->failover = failover ? Failover::kOn : Failover::kOff;
  line->command = CommandOf(app);
  return true;
}

}  // namespace cellhost
