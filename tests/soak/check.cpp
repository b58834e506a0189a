#include "soak/check.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace kiv::soak {
namespace {

std::string& Process() {
  static std::string text;
  return text;
}

thread_local const char* now = "start";

}  // namespace

void DescribeProcess(const std::string& text) { Process() = text; }

void Now(const char* subsystem) { now = subsystem; }

void Expect(bool holds, const char* invariant) {
  if (!holds) Break(invariant);
}

void Break(const std::string& invariant) {
  static std::atomic<bool> reported{false};
  // Others that fail meanwhile wait for the end of the process.
  while (reported.exchange(true)) std::this_thread::sleep_for(std::chrono::seconds(1));
  std::fprintf(stderr, "soak: %s, %s: broken: %s\n", Process().c_str(), now, invariant.c_str());
  std::fflush(stderr);
  std::_Exit(kBroken);
}

void Done(uint32_t status, const char* operation) {
  if (status != 0) Break(std::string(operation) + " returned " + std::to_string(status));
}

bool DoneOr(uint32_t status, uint32_t other, const char* operation) {
  if (status != other) Done(status, operation);
  return status == 0;
}

}  // namespace kiv::soak
