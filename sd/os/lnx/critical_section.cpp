// A futex mutex of its own, because the C library's does not fit into the caller's storage on every
// processor.
#include "os/critical_section.h"

#include <atomic>
#include <cstdint>
#include <new>

#include "kivsdu/mutex.h"
#include "os/lnx/futex.h"
#include "os/thread.h"

namespace kiv::os {
namespace {

constexpr uint32_t kFree = 0;
constexpr uint32_t kHeld = 1;
constexpr uint32_t kAwaited = 2;  // held, and threads may sleep

constexpr Deadline kNever = {{}, true};

struct Section {
  std::atomic<uint32_t> state;
  std::atomic<uint32_t> owner;  // identifier of the thread; 0 if free
  uint32_t depth;               // of the owner's entries
};
static_assert(sizeof(Section) <= sizeof(KivSdCritSec), "the caller's storage");
static_assert(alignof(Section) <= alignof(KivSdCritSec), "the caller's storage");

Section* SectionIn(void* storage) { return static_cast<Section*>(storage); }

// acquire: pairs with LeaveCriticalSection.
[[gnu::noinline]] void AwaitSection(Section* section) {
  while (section->state.exchange(kAwaited, std::memory_order_acquire) != kFree) {
    SleepOn(&section->state, kAwaited, kNever, Scope::kProcess);
  }
}

}  // namespace

void PrepareCriticalSection(void* storage) { new (storage) Section{}; }

void EndCriticalSection(void* /*storage*/) {}

void EnterCriticalSection(void* storage) {
  Section* section = SectionIn(storage);
  const uint32_t self = CurrentThreadId();
  // relaxed: only the owner itself can find its own identifier here.
  if (section->owner.load(std::memory_order_relaxed) != self) {
    uint32_t state = kFree;
    // acquire: pairs with LeaveCriticalSection.
    if (!section->state.compare_exchange_strong(state, kHeld, std::memory_order_acquire)) {
      AwaitSection(section);
    }
    section->owner.store(self, std::memory_order_relaxed);
  }
  ++section->depth;
}

void LeaveCriticalSection(void* storage) {
  Section* section = SectionIn(storage);
  if (--section->depth != 0) return;
  section->owner.store(0, std::memory_order_relaxed);
  // release: what the owner wrote is visible to the next one.
  if (section->state.exchange(kFree, std::memory_order_release) == kAwaited) {
    WakeSleepers(&section->state, 1, Scope::kProcess);
  }
}

}  // namespace kiv::os
