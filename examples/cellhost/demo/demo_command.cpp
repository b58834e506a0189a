// `cellhost demo`; see demo_command.h. No step relies on a fixed delay: each waits for its
// condition and gives up after a time limit.
#include "demo/demo_command.h"

#include <stdio.h>

#include <charconv>

#include "channel/protocol.h"
#include "client/pipe_client.h"
#include "demo/demo_client.h"
#include "demo/demo_files.h"
#include "demo/demo_segment.h"
#include "demo/demo_server.h"
#include "demo/demo_writer.h"
#include "host/complain.h"
#include "host/console_report.h"
#include "host/exit_code.h"
#include "host/line_file.h"
#include "host/thread_record.h"
#include "kivsdu/thread.h"

namespace cellhost {
namespace {

constexpr uint32_t kAtOnce = 2;  // clients that run beside the one that is killed
constexpr uint32_t kInTurn = 2;
constexpr uint32_t kWriters = 3;
constexpr uint32_t kAfter = 2;  // clients that run at the same time after the PUTs

constexpr uint32_t kNoticeLimitMs = 10 * 1000;
constexpr uint32_t kStopLimitMs = 20 * 1000;
constexpr char kHogOrder[] = "HOG 256";
constexpr std::string_view kTaken = "took 256 MiB; ";
constexpr std::string_view kRefused = "refused after ";
constexpr std::string_view kWarnedAndBack = "; warning seen; totals back";

// The totals for the last line.
struct Outcome {
  uint32_t clients;  // without the killed client and the one that controls the server
  uint32_t askers;   // clients whose answers were compared
  uint32_t agreeing;
  uint32_t expected;
  uint32_t stored;  // cells stored by PUTs
  uint32_t lost;    // clients that the server counts as lost
  bool passedOn;    // the killed client's chunk went to the next client
  bool serverEnded;
};

ExpectedAnswers Before(const DemoOptions& options) {
  return {.path = options.answers.c_str(), .option = "--answers"};
}

ExpectedAnswers After(const DemoOptions& options) {
  return {.path = options.answersAfter.c_str(), .option = "--answers-after"};
}

bool StartServer(const DemoOptions& options, LockDesign locks, const std::string& data,
                 DemoServer* server) {
  Heading("Server");
  if (!server->Start(options, locks, options.pipe, data) || !server->AwaitReady()) return false;
  Item("Pipe", "%s", options.pipe.c_str());
  Item("Spinlocks", "%s", NameOf(locks));
  if (!data.empty()) Item("Files", "%s", data.c_str());
  return true;
}

bool FinishClient(DemoClient* client, Outcome* outcome) {
  const bool done = client->Finish();
  ++outcome->askers;
  outcome->agreeing += client->agreeing();
  outcome->expected += client->expected();
  return done;
}

// Runs two clients and the one that is killed at the same time.
bool RunAtOnce(const DemoOptions& options, Outcome* outcome) {
  Heading("Clients at the same time");
  LostClient lost;
  DemoClient clients[kAtOnce];
  if (!lost.Start(options)) return false;
  for (DemoClient& client : clients) {
    if (!client.Start(options, Before(options), ++outcome->clients)) return false;
  }
  bool done = lost.Lose();
  for (DemoClient& client : clients) {
    if (!FinishClient(&client, outcome)) done = false;
  }
  return done;
}

// Runs a client for each chunk of the server's segment, and the one that is killed. Then runs a
// client process for each chunk.
bool RunOverSegment(const DemoOptions& options, Outcome* outcome) {
  ChunkDemo chunks;
  bool done = chunks.Run(options, outcome->clients);
  for (uint32_t at = 0; at < ChunkDemo::kAskers; ++at) {
    outcome->agreeing += chunks.asker(at).agreeing();
    outcome->expected += chunks.asker(at).expected();
  }
  outcome->clients += ChunkDemo::kAskers;
  outcome->askers += ChunkDemo::kAskers;
  outcome->passedOn = chunks.passedOn();

  Heading("Processes over shared memory, at the same time");
  DemoClient clients[KIV_SEGMENT_CHUNKS];
  for (DemoClient& client : clients) {
    if (!client.Start(options, Before(options), ++outcome->clients)) return false;
  }
  for (DemoClient& client : clients) {
    if (!FinishClient(&client, outcome)) done = false;
  }
  return done;
}

bool RunInTurn(const DemoOptions& options, Outcome* outcome) {
  Heading("Clients one after another");
  bool done = true;
  for (uint32_t at = 0; at < kInTurn; ++at) {
    DemoClient client;
    const bool started = client.Start(options, Before(options), ++outcome->clients);
    if (!started || !FinishClient(&client, outcome)) done = false;
  }
  return done;
}

// Gives each order to one writer, so that no two writers change the same cell.
bool RunWriters(const DemoOptions& options, const LineFile<PutOrder>& orders, Outcome* outcome) {
  Heading("Clients that change cells, at the same time");
  DemoWriter writers[kWriters];
  bool done = true;
  for (uint32_t at = 0; at < kWriters; ++at) {
    if (!writers[at].Start(options.road, options.pipe.c_str(), orders, at, kWriters,
                           ++outcome->clients)) {
      return false;
    }
  }
  for (DemoWriter& writer : writers) {
    if (!writer.Finish()) done = false;
    outcome->stored += writer.stored();
  }
  return done;
}

// Sends a request and prints the reply. Client is PipeClient or ServerClient.
template <class Client>
bool AskAndPrint(Client* control, std::string_view request, Reply* reply) {
  if (!control->Ask(request, reply)) return false;
  Item(request.data(), "%.*s", static_cast<int>(reply->text.size()), reply->text.data());
  return reply->ok;
}

// A server with a memory limit refuses the memory and goes on; one without a limit allocates it.
bool RunHog(const DemoOptions& options) {
  Heading("A client that has the server take memory");
  ServerClient client;
  Reply reply;
  if (!client.Open(options.road, options.pipe.c_str(), 0) ||
      !AskAndPrint(&client, kHogOrder, &reply)) {
    return false;
  }
  const bool refused = reply.text.starts_with(kRefused);
  const bool asItShould =
      refused ? reply.text.ends_with(kWarnedAndBack) : reply.text.starts_with(kTaken);
  client.Leave();
  return asItShould || Complain("the server did not handle that as expected");
}

bool RunAfter(const DemoOptions& options, Outcome* outcome) {
  Heading("Clients after the changes");
  DemoClient clients[kAfter];
  bool done = true;
  for (DemoClient& client : clients) {
    if (!client.Start(options, After(options), ++outcome->clients)) return false;
  }
  for (DemoClient& client : clients) {
    if (!FinishClient(&client, outcome)) done = false;
  }
  return done;
}

uint32_t LostOf(std::string_view stats) {
  uint32_t lost = 0;
  const size_t at = stats.find(kStatLost);
  if (at == stats.npos) return 0;
  const std::string_view number = stats.substr(at + kStatLost.size());
  std::from_chars(number.data(), number.data() + number.size(), lost);
  return lost;
}

// The server notices a lost client when it next checks the pipe. Repeats STATS until it has.
bool AwaitNotice(PipeClient* control, Outcome* outcome) {
  const TimeLimit limit(kNoticeLimitMs);
  Reply reply;
  for (Pause pause; outcome->lost == 0; pause.Take()) {
    if (!control->Ask(kStats, &reply)) return false;
    outcome->lost = LostOf(reply.text);
    if (limit.passed()) return Complain("the server has not noticed the client that was killed");
  }
  return true;
}

// Waits until the server has noticed the lost client. Called before the server is killed, because
// its counts end with it.
bool NoticeLost(const DemoOptions& options, Outcome* outcome) {
  PipeClient control;
  if (!control.Open(options.pipe.c_str(), 0) || !AwaitNotice(&control, outcome)) return false;
  control.Leave();
  return true;
}

// Sends STATS and STOP. Returns whether the server accepted them.
bool ControlServer(const DemoOptions& options, Outcome* outcome) {
  Heading("Control");
  PipeClient control;
  Reply reply;
  if (!control.Open(options.pipe.c_str(), 0)) return false;
  const bool asked = AskAndPrint(&control, kChunk, &reply) && AwaitNotice(&control, outcome) &&
                     AskAndPrint(&control, kStats, &reply);
  const bool stopped = AskAndPrint(&control, kStop, &reply);
  control.Leave();
  return asked && stopped;
}

bool EndServer(ChildProcess* server, Outcome* outcome) {
  const TimeLimit limit(kStopLimitMs);
  if (!server->AwaitEnd(limit)) return false;
  const uint32_t exitCode = server->exitCode();
  Item("Server", "process %u ended, exit code %u", server->id(), exitCode);
  outcome->serverEnded = exitCode == kExitDone;
  return outcome->serverEnded;
}

void PrintOutcome(const Outcome& outcome) {
  printf(
      "\n%u of %u answers of %u clients agree; %u cells were put by %u clients; %u %s lost%s%s; "
      "the server %s\n",
      outcome.agreeing, outcome.expected, outcome.askers, outcome.stored, kWriters,
      outcome.lost == 0 ? 1 : outcome.lost, outcome.lost > 1 ? "clients were" : "client was",
      outcome.lost == 0 ? " and not noticed" : " and noticed",
      outcome.passedOn ? ", and its chunk went to the next" : "",
      outcome.serverEnded ? "ended cleanly" : "did not end cleanly");
}

}  // namespace

int DemoCommand(const DemoOptions& options, LockDesign locks) {
  LineFile<PutOrder> orders(ParsePut);
  if (!orders.Read(options.puts.c_str(), "--puts")) return kExitFailed;
  DemoFiles files(options, locks, orders);
  DemoServer first;
  DemoServer afterKill;
  const bool inFiles = !options.inMemory;
  DemoServer* server = inFiles ? &afterKill : &first;
  Outcome outcome = {};
  if (inFiles && !files.ChooseFolder()) return kExitFailed;
  if (!StartServer(options, locks, files.folder(), &first)) return kExitFailed;
  const bool atOnce = options.road == Road::kSharedMemory ? RunOverSegment(options, &outcome)
                                                          : RunAtOnce(options, &outcome);
  const bool inTurn = RunInTurn(options, &outcome);
  if (inFiles && (!NoticeLost(options, &outcome) || !files.KillUnderPuts(&first, &afterKill))) {
    return kExitFailed;
  }
  const bool changed = RunWriters(options, orders, &outcome);
  const bool borne = RunHog(options);
  const bool after = changed && RunAfter(options, &outcome);
  const bool backedUp = !inFiles || files.MakeLastBackup(*server);
  const bool controlled = ControlServer(options, &outcome);
  const bool ended = EndServer(&server->process(), &outcome);
  const bool kept = backedUp && ended && (!inFiles || files.CheckLastCopy());
  PrintOutcome(outcome);
  if (inFiles) files.PrintOutcome();
  if (outcome.agreeing != outcome.expected) return kExitAnswersDiffer;
  const bool done = atOnce && inTurn && changed && borne && after && controlled && ended && kept &&
                    outcome.lost == 1;
  return done ? kExitDone : kExitFailed;
}

}  // namespace cellhost
