#include "stress/stress_command.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "capture.h"
#include "exit_code.h"
#include "failure.h"
#include "json.h"
#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "kivsdu/sync.h"
#include "kivsdu/system.h"
#include "platform.h"
#include "stress/subject.h"

namespace kivsd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLook = std::chrono::milliseconds(100);
constexpr uint32_t kSecondsPerLine = 10;  // without a terminal
constexpr uint32_t kHangSeconds = 60;
constexpr uint32_t kLeastThreads = 2;

// The lock design comes first: it counts for every lock that is made afterwards.
void StartLibrary(bool tickets) {
  KivSdSetHardwareAcceleration(tickets ? 1 : 0);
  Capture listing;
  constexpr uint32_t kEnable = 1;
  constexpr uint32_t kForce = 1;
  if (adMemThreadHeapInit(kEnable, nullptr, "kivsd", kForce) != KIV_ST_OK) {
    throw Failure("the memory manager cannot start; check config.mem with 'kivsd memconf check'");
  }
}

bool IsWanted(const StressOptions& options, const std::string& name) {
  return options.subjects.empty() ||
         std::ranges::find(options.subjects, name) != options.subjects.end();
}

using Subjects = std::vector<std::unique_ptr<StressSubject>>;

Subjects MakeSubjects(const StressOptions& options, StressRun* run) {
  const uint32_t threads =
      options.threads != 0 ? options.threads : std::max(kLeastThreads, KivSdCPUCountGet());
  Subjects subjects;
  if (IsWanted(options, "locks")) subjects.push_back(MakeLockSubject(run, threads));
  if (IsWanted(options, "heaps")) subjects.push_back(MakeHeapSubject(run, threads));
  if (IsWanted(options, "files")) subjects.push_back(MakeFileSubject(run, threads));
  if (IsWanted(options, "segments")) subjects.push_back(MakeSegmentSubject(run));
  return subjects;
}

// ---- Progress, on standard error ----

std::string ProgressText(const Subjects& subjects, uint32_t seconds, uint32_t left) {
  std::string text = std::to_string(seconds) + " s, " + std::to_string(left) + " s left:";
  for (const auto& subject : subjects) {
    text += " " + subject->name() + " " + std::to_string(subject->operations());
  }
  return text;
}

class Progress {
 public:
  Progress() : onTerminal_(IsTerminal(stderr)) {}

  void Show(const Subjects& subjects, uint32_t seconds, uint32_t left) {
    const std::string text = ProgressText(subjects, seconds, left);
    if (onTerminal_) {
      std::fprintf(stderr, "\r%-79s", text.c_str());
    } else if (seconds % kSecondsPerLine == 0) {
      std::fprintf(stderr, "%s\n", text.c_str());
    }
  }

  void End() const {
    if (onTerminal_) std::fprintf(stderr, "\r%79s\r", "");
  }

 private:
  const bool onTerminal_;
};

// Ends the process if a subject has done nothing for a long time: a thread that hangs in a lock
// cannot be ended in another way.
class HangWatch {
 public:
  explicit HangWatch(const Subjects& subjects) : subjects_(subjects), last_(subjects.size()) {}

  void Look(uint32_t second) {
    for (size_t i = 0; i < subjects_.size(); ++i) {
      const uint64_t operations = subjects_[i]->operations();
      if (operations != last_[i].operations) last_[i] = {operations, second};
      if (second - last_[i].second < kHangSeconds) continue;
      std::fprintf(
          stderr,
          "\nkivsd: failed: %s made no progress for %u s. A thread hangs; attach a debugger "
          "to a new run to see where.\n",
          subjects_[i]->name().c_str(), kHangSeconds);
      std::_Exit(kExitFound);
    }
  }

 private:
  struct Last {
    uint64_t operations = 0;
    uint32_t second = 0;
  };
  const Subjects& subjects_;
  std::vector<Last> last_;
};

// ---- The run ----

uint32_t SecondsSince(Clock::time_point start) {
  return static_cast<uint32_t>(
      std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count());
}

void WaitAndShow(const Subjects& subjects, const StressRun& run, uint32_t seconds) {
  const Clock::time_point start = Clock::now();
  Progress progress;
  HangWatch watch(subjects);
  uint32_t shown = 0;
  for (uint32_t now = 0; now < seconds && !run.IsOver(); now = SecondsSince(start)) {
    if (now != shown) {
      progress.Show(subjects, now, seconds - now);
      watch.Look(now);
      shown = now;
    }
    std::this_thread::sleep_for(kLook);
  }
  progress.End();
}

void RunAll(const Subjects& subjects, StressRun* run, uint32_t seconds) {
  std::vector<std::thread> threads;
  for (const auto& subject : subjects) {
    for (uint32_t i = 0; i < subject->ThreadCount(); ++i) {
      threads.emplace_back([&subject = *subject, i] { subject.Work(i); });
    }
  }
  WaitAndShow(subjects, *run, seconds);
  run->End();
  for (std::thread& thread : threads) thread.join();
  for (const auto& subject : subjects) subject->CheckAtEnd();
}

void PrintText(const Subjects& subjects, const std::vector<std::string>& errors, uint32_t seconds) {
  std::printf("%s after %u s\n", errors.empty() ? "passed" : "FAILED", seconds);
  for (const auto& subject : subjects) {
    std::printf("  %-10s%14llu operations by %u threads\n", subject->name().c_str(),
                static_cast<unsigned long long>(subject->operations()), subject->ThreadCount());
  }
  for (const std::string& error : errors) std::printf("%s", Wrapped("error:", 2, error).c_str());
}

Json JsonOf(const Subjects& subjects, const std::vector<std::string>& errors, uint32_t seconds) {
  Json counts = Json::object();
  for (const auto& subject : subjects) counts[subject->name()] = subject->operations();
  return {
      {"passed", errors.empty()}, {"seconds", seconds}, {"operations", counts}, {"errors", errors}};
}

}  // namespace

int StressCommand(const StressOptions& options) {
  StartLibrary(options.tickets);
  StressRun run;
  const Subjects subjects = MakeSubjects(options, &run);
  const Clock::time_point start = Clock::now();
  RunAll(subjects, &run, options.seconds);
  const std::vector<std::string> errors = run.Errors();
  if (options.format == Format::kJson) {
    PrintJson(JsonOf(subjects, errors, SecondsSince(start)));
  } else {
    PrintText(subjects, errors, SecondsSince(start));
  }
  return errors.empty() ? kExitDone : kExitFound;
}

}  // namespace kivsd
