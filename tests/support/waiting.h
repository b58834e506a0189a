// Shared by the tests of waiting: a stopwatch, actions of another thread while the test waits, and
// names that no other run of a test uses.
#ifndef KIV_TESTS_WAITING_H
#define KIV_TESTS_WAITING_H

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>

namespace kiv::test {

// Longer than any successful wait, even on a busy machine.
constexpr uint32_t kLimitMs = 20'000;

// A short time-out, and the least time that such a wait takes. It is less than the time-out because
// the system's clock may tick just before the wait ends.
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

// Runs `action` on another thread after the test has had time to start waiting. A wait that wrongly
// ends by itself ends before the action; a correct wait does not depend on the delay. The
// destructor joins the thread.
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

// Runs `action` on another thread, joins that thread, and returns the action's result.
template <typename Action>
auto OnAnotherThread(Action action) {
  decltype(action()) result{};
  std::thread([&] { result = action(); }).join();
  return result;
}

// Returns `prefix` with the process identifier and a number, because names of kernel objects are
// shared by the whole machine.
std::string UniqueName(const std::string& prefix);

}  // namespace kiv::test

#endif
