// What tests of waiting share: how long something took, something done by another thread while
// the test waits, and names that no other run of a test uses.
#ifndef KIV_TESTS_WAITING_H
#define KIV_TESTS_WAITING_H

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>

namespace kiv::test {

// Longer than anything that goes well takes, on however busy a machine.
constexpr uint32_t kLimitMs = 20'000;

// A short time-out, and what a wait of that long takes at least: the system's clock may tick
// just before the wait ends.
constexpr uint32_t kShortMs = 40;
constexpr double kShortAtLeastMs = 20;

class Stopwatch {
 public:
  double ElapsedMs() const {
    return std::chrono::duration<double, std::milli>(Clock::now() - start_).count();
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point start_ = Clock::now();
};

// Runs `action` on a thread of its own once the test has had time to start waiting. A wait that
// wrongly ends by itself ends before; a right one does not depend on the time. Joined at the end
// of the scope.
class Later {
 public:
  template <typename Action>
  explicit Later(Action action)
      : thread_([action = std::move(action)] {
          std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
          action();
        }) {}
  ~Later() { thread_.join(); }
  Later(const Later&) = delete;
  Later& operator=(const Later&) = delete;

 private:
  std::thread thread_;
};

// The result of `action` on a thread of its own, which has ended when this returns.
template <typename Action>
auto OnAnotherThread(Action action) {
  decltype(action()) result{};
  std::thread([&] { result = action(); }).join();
  return result;
}

// `prefix`, the process and a number: the kernel's names are the whole machine's.
std::string UniqueName(const std::string& prefix);

}  // namespace kiv::test

#endif
