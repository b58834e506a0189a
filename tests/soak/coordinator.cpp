#include "soak/coordinator.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "soak/board.h"
#include "soak/check.h"
#include "soak/echo_server.h"
#include "soak/platform.h"
#include "soak/subsystem.h"
#include "support/open_handles.h"

namespace kiv::soak {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr auto kLook = std::chrono::milliseconds(20);
constexpr auto kBetweenLines = std::chrono::seconds(1);
constexpr auto kLongestStandstill = std::chrono::seconds(120);
constexpr auto kLongestEnd = std::chrono::seconds(120);
constexpr uint32_t kMomentMs = 100;
constexpr uint32_t kLongestKillMs = 20'000;
constexpr uint32_t kStartingKilled = 4;  // one in 4 of the chosen processes that still start

unsigned long long Count(uint64_t number) { return number; }

// The subsystem that each thread uses.
std::string WorkOf(const Progress& progress) {
  std::string text;
  for (const std::atomic<uint32_t>& doing : progress.doing) {
    const uint32_t subsystem = doing.load();
    if (subsystem != 0) text += std::string(" ") + Kinds()[subsystem - 1].name + ",";
  }
  return text.empty() ? " none" : text;
}

// A process and the coordinator's end of its segment.
class Child {
 public:
  Child(const Options& options, uint32_t number)
      : options_(options), number_(number), echo_(options.prefix, number) {}

  // `steps` is what the board has of the process's place.
  void Start(uint64_t steps) {
    steps_ = steps;
    hasWorked_ = false;
    echo_.Start();
    process_ = std::make_unique<Process>(std::vector<std::string>{
        "--worker", std::to_string(number_), "--prefix", options_.prefix, "--folder",
        options_.folder + "/" + std::to_string(number_), "--threads",
        std::to_string(options_.threads), "--seed", std::to_string(NextSeed())});
  }

  // A process that ends by itself has found something broken.
  void ExpectRunning() {
    int code = 0;
    if (process_->EndsWithin(0, &code))
      Break("a process runs until it is killed: it ended with " + std::to_string(code));
  }

  void Kill() {
    int code = 0;
    process_->Kill();
    Expect(process_->EndsWithin(kLongestKillMs, &code), "a killed process ends");
    Expect(code == -1, "a killed process had not ended before");
    echo_.Stop();
  }

  // Waits a moment for the end that the board has asked for.
  bool HasEnded() {
    int code = 0;
    if (!process_->EndsWithin(kMomentMs, &code)) return false;
    Expect(code == 0, "a process finds all back at the start when it ends");
    echo_.Stop();
    return true;
  }

  bool HasWorked() const { return hasWorked_; }

  void ExpectProgress(const Progress& progress) {
    const auto now = Clock::now();
    const uint64_t steps = progress.Steps();
    if (steps != steps_) {
      movedAt_ = now;
      hasWorked_ = true;
    }
    steps_ = steps;
    if (now - movedAt_ < kLongestStandstill) return;
    Break("each process makes progress; its threads are at:" + WorkOf(progress));
  }

  uint64_t echoes() const { return echo_.messages(); }

 private:
  uint64_t NextSeed() { return stress::Scramble(options_.seed + number_) + starts_++; }

  const Options& options_;
  const uint32_t number_;
  EchoServer echo_;
  std::unique_ptr<Process> process_;
  uint64_t starts_ = 0;
  uint64_t steps_ = 0;
  bool hasWorked_ = false;  // since its last start
  Clock::time_point movedAt_ = Clock::now();
};

class Coordinator {
 public:
  explicit Coordinator(const Options& options)
      : options_(options), random_(options.seed), start_(Clock::now()), board_(options.prefix) {
    for (uint32_t number = 0; number < options.processes; ++number) {
      children_.push_back(std::make_unique<Child>(options_, number));
    }
  }

  void Run() {
    for (const auto& child : children_) child->Start(0);
    const auto end = start_ + std::chrono::seconds(options_.seconds);
    auto nextLine = start_ + kBetweenLines;
    auto nextKill = start_ + KillDelay();
    for (auto now = start_; now < end; now = Clock::now()) {
      std::this_thread::sleep_for(kLook);
      LookAtAll();
      if (options_.killMs != 0 && now >= nextKill) {
        KillOne();
        nextKill = now + KillDelay();
      }
      if (now < nextLine) continue;
      PrintLine();
      nextLine += kBetweenLines;
    }
    board_->stop.store(1);
    const auto latest = Clock::now() + kLongestEnd;
    for (const auto& child : children_) {
      while (!child->HasEnded()) {
        board_->looks.fetch_add(1);
        Expect(Clock::now() < latest, "a process ends when it is asked to");
      }
    }
  }

  void PrintTable() const {
    std::printf("\n%-22s %14s\n", "subsystem", "steps");
    for (size_t at = 0; at < Kinds().size(); ++at) {
      uint64_t steps = 0;
      for (const Progress& progress : board_->processes) steps += progress.steps[at].load();
      std::printf("%-22s %14llu\n", Kinds()[at].name, Count(steps));
    }
    uint64_t threads = 0;
    uint64_t echoes = 0;
    for (const Progress& progress : board_->processes) threads += progress.threadsStarted.load();
    for (const auto& child : children_) echoes += child->echoes();
    std::printf("%-22s %14llu\n%-22s %14llu\n%-22s %14llu\n%-22s %14llu\n", "messages sent back",
                Count(echoes), "threads started", Count(threads), "heaps walked",
                Count(HeapsWalked()), "processes killed", Count(kills_));
  }

 private:
  std::chrono::milliseconds KillDelay() {
    return std::chrono::milliseconds(options_.killMs / 2 + random_.Below(options_.killMs + 1));
  }

  void LookAtAll() {
    board_->looks.fetch_add(1);
    for (size_t at = 0; at < children_.size(); ++at) {
      const std::string name = "process " + std::to_string(at);
      Now(name.c_str());
      children_[at]->ExpectRunning();
      children_[at]->ExpectProgress(board_->processes[at]);
    }
    Now("coordinator");
  }

  // Mostly a process that has begun to work: on a busy machine the start takes seconds.
  void KillOne() {
    const uint32_t number = random_.Below(static_cast<uint32_t>(children_.size()));
    Child& child = *children_[number];
    if (!child.HasWorked() && !random_.OneIn(kStartingKilled)) return;
    child.Kill();
    child.Start(board_->processes[number].Steps());
    ++kills_;
  }

  uint64_t HeapsWalked() const {
    uint64_t walked = 0;
    for (const Progress& progress : board_->processes) walked += progress.heapsWalked.load();
    return walked;
  }

  void PrintLine() const {
    uint64_t steps = 0;
    for (const Progress& progress : board_->processes) steps += progress.Steps();
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_).count();
    std::printf("%6lld s  %12llu steps  %6llu kills  %8llu heaps walked\n",
                static_cast<long long>(seconds), Count(steps), Count(kills_), Count(HeapsWalked()));
    std::fflush(stdout);
  }

  const Options& options_;
  Random random_;
  const Clock::time_point start_;
  Board board_;
  std::vector<std::unique_ptr<Child>> children_;
  uint64_t kills_ = 0;
};

// What a killed process left goes when another process makes its first named object; its pipes go with
// another process's first pipe. After each killed process another one was started.
void ExpectNoNames(const std::string& prefix) {
  KivHandle pipe = nullptr;
  Done(KivSdNamedPipeCreate(nullptr, (prefix + "-last").c_str(), &pipe, KIV_PIPE_DUPLEX,
                            KIV_PIPE_BYTES, 1, 0, 0, 0),
       "KivSdNamedPipeCreate");
  Done(KivSdPipeClose(nullptr, &pipe), "KivSdPipeClose");
  const std::vector<std::string> left = LeftNames(prefix);
  if (!left.empty()) Break("no name outlasts its processes: " + left.front());
}

// Opens what the coordinator opens, so that the library then has what it keeps for a process.
void WarmUp(const Options& options) {
  const Board board(options.prefix);
  EchoServer echo(options.prefix, 0);
  echo.Start();
}

}  // namespace

int RunCoordinator(const Options& options) {
  Options own = options;
  own.prefix = "kivsdu-soak-" + std::to_string(OwnProcessId());
  own.folder = (fs::temp_directory_path() / own.prefix).string();
  DescribeProcess("coordinator, seed " + std::to_string(own.seed));
  Now("start");
  std::printf("soak: %u processes of %u threads for %u s, seed %llu\n", own.processes, own.threads,
              own.seconds, Count(own.seed));
  std::fflush(stdout);
  WarmUp(own);
  const size_t handles = test::OpenHandles();
  {
    Coordinator coordinator(own);
    coordinator.Run();
    coordinator.PrintTable();
  }
  Now("end");
  const size_t left = test::OpenHandles();
  if (left != handles) {
    Break("handles are back at the start: " + std::to_string(handles) + " before, " +
          std::to_string(left) + " after");
  }
  ExpectNoNames(own.prefix);
  fs::remove_all(own.folder);
  std::printf("soak: nothing is broken; memory, handles and names are back at the start\n");
  return 0;
}

}  // namespace kiv::soak
