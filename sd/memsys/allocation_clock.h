// The clock that counts the allocations of thread heaps. It chooses slots (slots.h) and throttles
// messages (messages.h).
//
// A thread that allocates alone counts its allocations one by one. Were this so for threads that
// allocate at the same time, the clock's cache line would go from processor to processor with each
// allocation, and two threads would be slower than one. A thread that meets the ticks of others
// again and again therefore draws several ticks at once, and uses them without a look at the clock.
// Ticks that it never uses stay counted.
#ifndef KIV_MEMSYS_ALLOCATION_CLOCK_H
#define KIV_MEMSYS_ALLOCATION_CLOCK_H

#include <cstdint>

#include "memsys/relaxed.h"
#include "os/thread_word.h"

namespace kiv {

// What a thread knows of the clock; all 0 at first.
struct ThreadTicks {
  uint64_t next;      // its next tick, if nobody else counts meanwhile
  uint32_t drawn;     // ticks from `next` on that belong to it
  uint32_t meetings;  // draws with few ticks between them that it counted alone
  uint64_t drawEnd;   // just past the ticks of its last draw
};
static_assert(sizeof(ThreadTicks) == os::kThreadStorageBytes, "the thread's storage");

inline ThreadTicks* OwnTicks() { return static_cast<ThreadTicks*>(os::ThreadStorage()); }

// Has its own cache line.
class alignas(64) AllocationClock {
 public:
  // Threads that meet this often draw one tick each: occasional meetings change nothing.
  static constexpr uint32_t kSingleDraws = 16;
  static constexpr uint32_t kMostTicks = 64;  // of a draw

  uint64_t ticks() const { return ticks_; }

  // The period of the present ticks; see slots.h.
  uint64_t period() const { return period_; }
  void StartPeriod(uint64_t period) { period_ = period; }

  // Counts an allocation and stores its tick. Fails, with nothing changed, if other threads have
  // counted meanwhile. An update may be lost: threads may then get the same tick.
  bool TryAdvance(ThreadTicks* own, uint64_t* tick) {
    const uint64_t next = own->next;
    if (own->drawn != 0) {
      --own->drawn;
    } else {
      if (ticks_ != next) return false;
      ticks_ = next + 1;
    }
    own->next = next + 1;
    *tick = next;
    return true;
  }

  // Counts an allocation for which TryAdvance has failed, and returns its tick.
  uint64_t Draw(ThreadTicks* own);

  uint64_t Advance(ThreadTicks* own) {
    uint64_t tick;
    return TryAdvance(own, &tick) ? tick : Draw(own);
  }

 private:
  Relaxed<uint64_t> ticks_;
  Relaxed<uint64_t> period_;
};
inline AllocationClock allocationClock;

}  // namespace kiv

#endif
