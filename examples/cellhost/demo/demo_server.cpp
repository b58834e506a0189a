// Servers of the demo; see demo_server.h.
#include "demo/demo_server.h"

#include "channel/protocol.h"
#include "client/pipe_client.h"
#include "host/complain.h"
#include "host/console_report.h"
#include "host/exit_code.h"
#include "host/waiting.h"
#include "server/serve_command.h"

namespace cellhost {
namespace {

// On a busy machine, the library needs seconds to measure the spin budget of its locks.
constexpr uint32_t kLoadLimitMs = 180 * 1000;
constexpr uint32_t kStopLimitMs = 20 * 1000;
constexpr uint32_t kTryMs = 50;
constexpr double kUsPerSecond = 1e6;

// Parses a number with commas between groups of digits.
uint32_t ReadGrouped(std::string_view text) {
  uint32_t number = 0;
  for (const char c : text) {
    if (c != ',') number = number * 10 + static_cast<uint32_t>(c - '0');
  }
  return number;
}

}  // namespace

bool DemoServer::Start(const DemoOptions& options, LockDesign locks, const std::string& pipe,
                       const std::string& data) {
  pipe_ = pipe;
  sinceStart_.Restart();
  return process_.Start({"serve", "--facts", options.facts, "--pipe", pipe, "--locks",
                         NameOf(locks), options.memory.empty() ? "" : "--memory", options.memory,
                         options.failover ? "--failover" : "", data.empty() ? "" : "--data", data});
}

bool DemoServer::AwaitReady() {
  const TimeLimit limit(kLoadLimitMs);
  for (Pause pause; !ServerListens(pipe_.c_str(), kTryMs); pause.Take()) {
    if (!process_.alive()) return Complain("the server ended before it served; it said why above");
    if (limit.passed()) {
      return Complain(
          "the server is not ready after %u s; end other programs that keep this "
          "machine busy, or give the server fewer facts with --facts",
          kLoadLimitMs / 1000);
    }
  }
  Item("Process", "%u, ready after %.3f s", process_.id(), sinceStart_.elapsedUs() / kUsPerSecond);
  return true;
}

bool DemoServer::Replayed(uint32_t* puts) {
  if (!process_.Pump()) return false;
  const std::string_view output = process_.output();
  const size_t end = output.find(kCarriedOutAgain);
  if (end == output.npos) return Complain("the server does not show what was in its journal");
  const size_t blank = output.find_last_of(' ', end - 1);
  *puts = ReadGrouped(output.substr(blank + 1, end - blank - 1));
  return true;
}

bool DemoServer::Stop() {
  PipeClient control;
  Reply reply;
  if (!control.Open(pipe_.c_str(), 0) || !control.Ask(kStop, &reply)) return false;
  control.Leave();
  const TimeLimit limit(kStopLimitMs);
  if (!process_.AwaitEnd(limit)) return false;
  if (process_.exitCode() == kExitDone) return true;
  return Complain("the server with the pipe '%s' ended with exit code %u", pipe_.c_str(),
                  process_.exitCode());
}

}  // namespace cellhost
