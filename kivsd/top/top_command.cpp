#include "top/top_command.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "exit_code.h"
#include "failure.h"
#include "json.h"
#include "platform.h"
#include "top/host.h"
#include "top/view.h"

namespace kivsd {
namespace {

using kivsdu::MemoryReader;

constexpr char kClearScreen[] = "\x1b[H\x1b[2J";

int ListHosts(Format format) {
  const std::vector<Host> hosts = FindHosts();
  Json list = Json::array();
  for (const Host& host : hosts) {
    list.push_back({{"process", host.processId}, {"host", host.name}});
    if (format == Format::kText) std::printf("%8u  %s\n", host.processId, host.name.c_str());
  }
  if (format == Format::kJson) PrintJson(list);
  if (hosts.empty() && format == Format::kText) std::printf("no host publishes its memory\n");
  return hosts.empty() ? kExitFound : kExitDone;
}

class Top {
 public:
  explicit Top(const TopOptions& options)
      : options_(options), isScreen_(options.format == Format::kText && IsTerminal(stdout)) {
    const Host host = ChooseHost(options.host);
    if (reader_.Open(host.processId) != KIV_ST_OK) {
      throw Failure("process " + std::to_string(host.processId) + " has stopped publishing");
    }
    if (isScreen_) EnableEscapes(stdout);
  }

  void Run() {
    for (uint64_t shown = 1; ShowNext() && shown != options_.count; ++shown) {
      std::this_thread::sleep_for(std::chrono::duration<double>(options_.seconds));
    }
  }

 private:
  // Returns whether the host still publishes.
  bool ShowNext() {
    TopView view = {{}, earlier_, MemoryReader::Outcome::kUnknown, kivsdu::MemoryClockMs()};
    view.outcome = reader_.Read(&view.sample);
    if (view.outcome == MemoryReader::Outcome::kUnknown) {
      throw Failure("the host publishes in another layout; use the kivsd of the host's version");
    }
    if (view.outcome == MemoryReader::Outcome::kTorn) {
      throw Failure("the host ended while it wrote a sample; start the command again");
    }
    Show(view);
    earlier_ = view.sample;
    return view.outcome == MemoryReader::Outcome::kSample;
  }

  void Show(const TopView& view) {
    if (options_.format == Format::kJson) {
      PrintJsonLine(JsonOf(view));
    } else {
      std::printf("%s%s", isScreen_ ? kClearScreen : "", TextOf(view).c_str());
      if (isScreen_) std::printf("\nCtrl+C ends\n");
    }
    std::fflush(stdout);
  }

  const TopOptions& options_;
  const bool isScreen_;
  MemoryReader reader_;
  std::optional<kivsdu::MemorySample> earlier_;
};

}  // namespace

int TopCommand(const TopOptions& options) {
  if (options.list) return ListHosts(options.format);
  Top(options).Run();
  return kExitDone;
}

}  // namespace kivsd
