// Pauses; see waiting.h.
#include "host/waiting.h"

#include "host/thread_record.h"
#include "kivsdu/thread.h"

namespace cellhost {
namespace {

constexpr uint32_t kYields = 64;
constexpr uint32_t kSleepMs = 1;

}  // namespace

void Pause::Take() {
  if (taken_ == kYields) return KivSdSleep(ThisContext(), kSleepMs);
  ++taken_;
  KivSdThreadYield(ThisContext());
}

}  // namespace cellhost
