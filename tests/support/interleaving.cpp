#include "support/interleaving.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kiv::test {
namespace {

using Operation = uint32_t;
constexpr Operation kFirst = 0;
constexpr Operation kSecond = 1;
constexpr Operation kNone = 2;
constexpr uint64_t kNever = UINT64_MAX;

// A longer wait is a deadlock: an operation can always go on after the other one has ended.
constexpr uint64_t kMaxBlocked = 100'000;

// The operation that the calling thread runs, and whether the thread runs a callback of the test.
thread_local Operation own = kNone;
thread_local bool isObserving = false;

struct Progress {
  uint64_t points = 0;
  uint64_t stopsAt = kNever;
  bool hasStopped = false;
  bool hasEnded = false;
  std::vector<const void*> held;
};

// Only the operation whose turn it is uses this object.
class Run {
 public:
  Run(const Interleaving& what, uint64_t firstStopsAt, uint64_t secondStopsAt) : what_(what) {
    progress_[kFirst].stopsAt = firstStopsAt;
    progress_[kSecond].stopsAt = secondStopsAt;
  }

  void Execute() {
    std::thread second([this] { Live(kSecond, what_.second); });
    std::thread first([this] { Live(kFirst, what_.first); });
    first.join();
    second.join();
  }

  void Point() {
    if (what_.onPoint) Observe(what_.onPoint);
    Progress& progress = progress_[own];
    if (++progress.points == progress.stopsAt) Stop();
  }

  bool Blocked() {
    if (progress_[Other()].hasEnded) return false;
    if (++blocked_ > kMaxBlocked) {
      std::fprintf(stderr, "both operations wait for ever\n");
      std::abort();
    }
    HandOver(Other());
    return true;
  }

  Progress& OfOwn() { return progress_[own]; }
  Progress& OfOther() { return progress_[Other()]; }
  bool HasStopped(Operation operation) const { return progress_[operation].hasStopped; }

 private:
  static Operation Other() { return own == kFirst ? kSecond : kFirst; }

  template <typename Call>
  static void Observe(Call call) {
    isObserving = true;
    call();
    isObserving = false;
  }

  void Live(Operation operation, const std::function<void()>& act) {
    own = operation;
    AwaitTurn();
    act();
    progress_[own].hasEnded = true;
    GiveTurn(Other());
    own = kNone;
  }

  void Stop() {
    progress_[own].hasStopped = true;
    if (own == kFirst && what_.onStop) {
      Observe([this] { what_.onStop(progress_[kSecond].stopsAt == kNever); });
    }
    if (!progress_[Other()].hasEnded) HandOver(Other());
  }

  void HandOver(Operation to) {
    GiveTurn(to);
    AwaitTurn();
  }

  void GiveTurn(Operation to) {
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      turn_ = to;
    }
    turnChanged_.notify_all();
  }

  void AwaitTurn() {
    std::unique_lock<std::mutex> lock(mutex_);
    turnChanged_.wait(lock, [this] { return turn_ == own; });
  }

  const Interleaving& what_;
  std::array<Progress, 2> progress_;
  uint64_t blocked_ = 0;
  std::mutex mutex_;
  std::condition_variable turnChanged_;
  Operation turn_ = kFirst;  // under the mutex
};

// The run in progress; null between runs.
Run* current = nullptr;

bool IsPartOfARun() { return own != kNone && !isObserving; }

}  // namespace

uint64_t Interleaving::RunAll() {
  uint64_t runs = 0;
  for (uint64_t firstStopsAt = 1;; ++firstStopsAt) {
    for (uint64_t secondStopsAt = 0;; ++secondStopsAt) {
      SCOPED_TRACE("stops at " + std::to_string(firstStopsAt) + " and " +
                   std::to_string(secondStopsAt));
      prepare();
      // 0 means that the second operation runs to its end.
      Run run(*this, firstStopsAt, secondStopsAt == 0 ? kNever : secondStopsAt);
      current = &run;
      run.Execute();
      current = nullptr;
      check();
      ++runs;
      if (testing::Test::HasFailure() || !run.HasStopped(kFirst)) return runs;
      if (secondStopsAt != 0 && !run.HasStopped(kSecond)) break;
    }
  }
}

void Point() {
  if (IsPartOfARun()) current->Point();
}

bool Blocked() { return IsPartOfARun() && current->Blocked(); }

bool IsHeldByOther(const void* lock) {
  if (!IsPartOfARun()) return false;
  const auto& held = current->OfOther().held;
  return std::find(held.begin(), held.end(), lock) != held.end();
}

void NoteTaken(const void* lock) {
  if (IsPartOfARun()) current->OfOwn().held.push_back(lock);
}

void NoteReleased(const void* lock) {
  if (!IsPartOfARun()) return;
  auto& held = current->OfOwn().held;
  held.erase(std::find(held.begin(), held.end(), lock));
}

}  // namespace kiv::test
