// Backups and a killed server; see demo_files.h.
#include "demo/demo_files.h"

#include <stdio.h>

#include <algorithm>

#include "channel/protocol.h"
#include "client/pipe_client.h"
#include "demo/demo_client.h"
#include "host/complain.h"
#include "host/console_report.h"
#include "host/thread_record.h"
#include "host/waiting.h"
#include "kivsdu/file.h"
#include "kivsdu/path.h"
#include "kivsdu/system.h"

namespace cellhost {
namespace {

constexpr char kNamePrefix[] = "ce";
constexpr uint32_t kFirstPauseSeconds = 1;
constexpr uint32_t kLongestPauseSeconds = 16;
constexpr uint32_t kPutsEach = 5;  // PUTs of each client that AwaitMore waits for
constexpr uint32_t kMoreLimitMs = 30 * 1000;
constexpr double kUsPerSecond = 1e6;
constexpr uint32_t kCopyClient = 10;  // number of the client, for the output

}  // namespace

DemoFiles::~DemoFiles() {
  uint8_t exists = 0;
  KivSdContext* ctx = ThisContext();
  if (folder_.empty() || KivSdFileAccess(ctx, folder_.c_str(), KIV_FILE_EXISTS, &exists) != 0 ||
      exists == 0) {
    return;
  }
  Succeeded(ctx, KivSdDirRemove(ctx, folder_.c_str()), "remove the demo's files");
}

bool DemoFiles::ChooseFolder() {
  char name[KIV_SYSTEM_PATH_MAX];
  KivSdContext* ctx = ThisContext();
  if (!Succeeded(ctx, KivSdFileTempNameGet(ctx, kNamePrefix, name), "choose a folder")) {
    return false;
  }
  folder_ = name;
  return true;
}

// Has the server make a backup, and prints its report.
bool DemoFiles::BackUp(PipeClient* control, std::string* report) const {
  bool made = false;
  if (!Order(control, kBackup.data(), &made, report)) return false;
  return made || Complain("the server made no backup: %s", report->c_str());
}

// Sends a command to the server and prints the reply.
//
//   accepted  receives whether the server carried the command out
bool DemoFiles::Order(PipeClient* control, const char* order, bool* accepted,
                      std::string* text) const {
  Reply reply;
  if (!control->Ask(order, &reply)) return false;
  *accepted = reply.ok;
  *text = reply.text;
  Item(order, "%s", text->c_str());
  return true;
}

// Returns the folder of a backup. The backup's report begins with the folder's name.
std::string DemoFiles::FolderIn(const std::string& report) const {
  return folder_ + "/" + report.substr(0, report.find(':'));
}

bool DemoFiles::StartCounters(const DemoServer& server) {
  counterCount_ = std::min(kCounters, orders_.count());
  for (uint32_t at = 0; at < counterCount_; ++at) {
    if (!counters_[at].Start(server.pipe().c_str(), orders_.item(at).cell)) return false;
  }
  return AwaitMore();
}

// Waits until each client has stored kPutsEach more numbers.
bool DemoFiles::AwaitMore() const {
  const TimeLimit limit(kMoreLimitMs);
  for (uint32_t at = 0; at < counterCount_; ++at) {
    const uint32_t wanted = counters_[at].stored() + kPutsEach;
    for (Pause pause; counters_[at].stored() < wanted; pause.Take()) {
      if (limit.passed()) return Complain("a client's PUTs are not carried out");
    }
  }
  return true;
}

bool DemoFiles::BackUpMeanwhile(PipeClient* control) {
  std::string report;
  for (uint32_t at = 0; at < counterCount_; ++at) atLeast_[at] = counters_[at].stored();
  if (!BackUp(control, &report)) return false;
  for (uint32_t at = 0; at < counterCount_; ++at) atMost_[at] = counters_[at].stored() + 1;
  firstCopy_ = FolderIn(report);
  return AwaitMore();
}

// Makes a backup that leaves writes paused for some seconds, and asks for another one, which the
// server must refuse. On a busy machine the pause may be over before. Its clock counts whole
// seconds: a pause is up to one second shorter than was asked for.
DemoFiles::PauseSeen DemoFiles::SeePause(PipeClient* control, uint32_t seconds) const {
  const std::string order = std::string(kBackup) + " " + std::to_string(seconds);
  std::string first;
  std::string second;
  bool made = false;
  bool madeAgain = false;
  const Stopwatch watch;
  if (!Order(control, order.c_str(), &made, &first) ||
      !Order(control, kBackup.data(), &madeAgain, &second)) {
    return PauseSeen::kFailed;
  }
  if (made && !madeAgain) return PauseSeen::kYes;
  if (watch.elapsedUs() >= (seconds - 1) * kUsPerSecond) return PauseSeen::kTooLate;
  Complain(
      "'%s' should make a backup and leave writes paused, and a backup right after it should "
      "be refused; the server said '%s', then '%s'",
      order.c_str(), first.c_str(), second.c_str());
  return PauseSeen::kFailed;
}

// Pauses writes without lifting the pause; a waiting PUT must lift it.
bool DemoFiles::LetPauseExpire(PipeClient* control) const {
  PauseSeen seen = PauseSeen::kTooLate;
  for (uint32_t seconds = kFirstPauseSeconds;
       seen == PauseSeen::kTooLate && seconds <= kLongestPauseSeconds; seconds *= 2) {
    seen = SeePause(control, seconds);
  }
  if (seen == PauseSeen::kFailed) return false;
  if (seen == PauseSeen::kTooLate) {
    return Complain("this machine is too busy: a backup took more than %u s", kLongestPauseSeconds);
  }
  const Stopwatch watch;
  if (!AwaitMore()) return false;
  Item("PUTs", "go on by themselves after %.1f s", watch.elapsedUs() / kUsPerSecond);
  return true;
}

bool DemoFiles::KillNow(DemoServer* server) {
  if (!server->process().Kill()) return false;
  bool done = true;
  uint32_t stored = 0;
  for (uint32_t at = 0; at < counterCount_; ++at) {
    if (!counters_[at].Finish()) done = false;
    stored += counters_[at].stored();
  }
  Item("Killed", "process %u, after %s PUTs of %u clients, and in the middle of more",
       server->process().id(), Grouped(stored).text, counterCount_);
  return done || Complain("a client's PUT was refused");
}

bool DemoFiles::KillUnderPuts(DemoServer* killed, DemoServer* next) {
  Heading("Backups while clients change cells, and the server killed meanwhile");
  PipeClient control;
  if (!StartCounters(*killed) || !control.Open(killed->pipe().c_str(), 0) ||
      !BackUpMeanwhile(&control) || !LetPauseExpire(&control) || !KillNow(killed)) {
    return false;
  }
  Heading("Server on what the killed one has left");
  DemoServer copy;
  if (!next->Start(options_, locks_, options_.pipe, folder_) ||
      !copy.Start(options_, locks_, options_.pipe + "_copy", firstCopy_) || !next->AwaitReady() ||
      !CheckRestarted(next)) {
    return false;
  }
  Heading("Server on the copy that was made meanwhile");
  if (!copy.AwaitReady() || !CheckFirstCopy(copy) || !copy.Stop()) return false;
  ++copiesRight_;
  return true;
}

// Checks the restarted server's cells. Each client counts up from 1. If no PUT was lost or applied
// twice, the sum of the cells is therefore the number of PUTs.
bool DemoFiles::CheckRestarted(DemoServer* server) {
  uint32_t replayed = 0;
  uint32_t sum = 0;
  PipeClient client;
  if (!server->Replayed(&replayed) || !client.Open(server->pipe().c_str(), 0)) return false;
  for (uint32_t at = 0; at < counterCount_; ++at) {
    uint32_t number = 0;
    if (!counters_[at].Ask(&client, &number)) return false;
    const uint32_t stored = counters_[at].stored();
    if (number != stored && number != stored + 1) {
      return Complain("a client was told that %u is stored, and the cell has %u", stored, number);
    }
    sum += number;
  }
  client.Leave();
  Item("Replayed", "%s PUTs; the cells have %s", Grouped(replayed).text, Grouped(sum).text);
  putsKept_ = sum;
  return replayed == sum || Complain("PUTs were lost, or carried out twice");
}

bool DemoFiles::CheckFirstCopy(const DemoServer& server) const {
  PipeClient client;
  if (!client.Open(server.pipe().c_str(), 0)) return false;
  for (uint32_t at = 0; at < counterCount_; ++at) {
    uint32_t number = 0;
    if (!counters_[at].Ask(&client, &number)) return false;
    if (number < atLeast_[at] || number > atMost_[at]) {
      return Complain("the copy has %u, which was %u to %u when it was made", number, atLeast_[at],
                      atMost_[at]);
    }
  }
  client.Leave();
  Item("Cells", "as they were when the copy was made");
  return true;
}

bool DemoFiles::MakeLastBackup(const DemoServer& server) {
  Heading("Backup after the changes");
  std::string report;
  PipeClient control;
  if (!control.Open(server.pipe().c_str(), 0) || !BackUp(&control, &report)) {
    return false;
  }
  control.Leave();
  lastCopy_ = FolderIn(report);
  return true;
}

bool DemoFiles::CheckLastCopy() {
  Heading("Server on that copy");
  DemoServer server;
  DemoClient client;
  DemoOptions options = options_;
  options.pipe += "_copy";
  const ExpectedAnswers after = {.path = options.answersAfter.c_str(), .option = "--answers-after"};
  if (!server.Start(options, locks_, options.pipe, lastCopy_) || !server.AwaitReady() ||
      !client.Start(options, after, kCopyClient) || !client.Finish() || !server.Stop()) {
    return false;
  }
  ++copiesRight_;
  return true;
}

void DemoFiles::PrintOutcome() const {
  printf(
      "%s PUTs, all that a killed server had called stored, were there after its restart; "
      "%u of 2 copies have the cells of their moment\n",
      Grouped(putsKept_).text, copiesRight_);
}

}  // namespace cellhost
