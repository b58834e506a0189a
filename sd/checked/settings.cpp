#include "checked/settings.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "os/environment.h"

namespace kiv::checked {
namespace {

constexpr uint64_t kDefaultQuarantineBlocks = 1024;
constexpr uint64_t kUnread = UINT64_MAX;

uint64_t ReadQuarantineBlocks() {
  const char* text = os::EnvironmentValue("KIV_CHECKED_QUARANTINE");
  return text == nullptr ? kDefaultQuarantineBlocks : std::strtoul(text, nullptr, 10);
}

}  // namespace

uint64_t QuarantineBlocks() {
  static std::atomic<uint64_t> blocks{kUnread};
  // relaxed: threads that read the environment at once read equal values.
  if (blocks.load(std::memory_order_relaxed) == kUnread) {
    blocks.store(ReadQuarantineBlocks(), std::memory_order_relaxed);
  }
  return blocks.load(std::memory_order_relaxed);
}

bool LeaksAreFatal() {
  const char* text = os::EnvironmentValue("KIV_CHECKED_LEAKS");
  return text != nullptr && std::strcmp(text, "assert") == 0;
}

}  // namespace kiv::checked
