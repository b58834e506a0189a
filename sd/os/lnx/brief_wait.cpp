#include "os/lnx/brief_wait.h"

#include <atomic>

#include "os/processor.h"

namespace kiv::os {
namespace {

constexpr int kPatience = 4;      // looks in vain, one after another, before a thread stops looking
constexpr int kRestedWaits = 64;  // waits without a look before it tries once more

enum Processors : int { kUnknown, kOne, kSeveral };

// relaxed: the number carries no other data. Two threads may both count.
std::atomic<int> processors;

// Positive: looks left. Negative: waits left without a look.
constinit thread_local int looks = kPatience;

bool HasSeveralProcessors() {
  int known = processors.load(std::memory_order_relaxed);
  if (known == kUnknown) {
    known = ProcessorCount() > 1 ? kSeveral : kOne;
    processors.store(known, std::memory_order_relaxed);
  }
  return known == kSeveral;
}

}  // namespace

bool ShouldLook() {
  if (!HasSeveralProcessors()) return false;
  if (looks > 0) return true;
  if (++looks == 0) looks = 1;
  return false;
}

void LearnFromLook(bool held) {
  if (held) {
    looks = kPatience;
  } else if (--looks == 0) {
    looks = -kRestedWaits;
  }
}

}  // namespace kiv::os
