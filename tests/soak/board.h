// The record that all processes of a soak share: the progress of each, and the request to stop. It
// outlasts a killed process, whose place the next one takes.
#ifndef KIV_TESTS_SOAK_BOARD_H
#define KIV_TESTS_SOAK_BOARD_H

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "kivsdu/api.h"

namespace kiv::soak {

constexpr uint32_t kMostProcesses = 16;
constexpr uint32_t kMostThreads = 64;  // of a process
constexpr uint32_t kMostSubsystems = 32;

struct Progress {
  std::array<std::atomic<uint64_t>, kMostSubsystems> steps;
  std::atomic<uint64_t> heapsWalked;
  std::atomic<uint64_t> threadsStarted;
  // What each thread does now: the subsystem's number plus 1, or 0.
  std::array<std::atomic<uint32_t>, kMostThreads> doing;

  uint64_t Steps() const;
};

struct BoardRecord {
  std::atomic<uint32_t> stop;
  std::atomic<uint64_t> looks;  // by the coordinator; without them the processes end
  std::array<Progress, kMostProcesses> processes;
};
static_assert(std::atomic<uint64_t>::is_always_lock_free, "processes share them");

class Board {
 public:
  explicit Board(const std::string& prefix);
  ~Board();
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

  BoardRecord* operator->() const { return record_; }

 private:
  KivHandle mapping_ = nullptr;
  BoardRecord* record_ = nullptr;
};

}  // namespace kiv::soak

#endif
