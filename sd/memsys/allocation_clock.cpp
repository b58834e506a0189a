#include "memsys/allocation_clock.h"

#include <algorithm>

using namespace kiv;

namespace {

constexpr uint32_t kDoublings = 6;
static_assert(1U << kDoublings == AllocationClock::kMostTicks, "the last doubling");
constexpr uint32_t kMostMeetings = AllocationClock::kSingleDraws + kDoublings;

uint32_t TicksOfDraw(uint32_t meetings) {
  if (meetings <= AllocationClock::kSingleDraws) return 1;
  return 1U << (meetings - AllocationClock::kSingleDraws);
}

}  // namespace

uint64_t AllocationClock::Draw(ThreadTicks* own) {
  const bool hasJustMet = own->next - own->drawEnd < kMostTicks;
  own->meetings = hasJustMet ? std::min(own->meetings + 1, kMostMeetings) : 1;
  const uint32_t count = TicksOfDraw(own->meetings);
  const uint64_t first = ticks_.FetchAdd(count);
  own->next = first + 1;
  own->drawn = count - 1;
  own->drawEnd = first + count;
  return first;
}
