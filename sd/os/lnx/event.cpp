#include "os/lnx/event.h"

#include <cerrno>

#include "os/lnx/brief_wait.h"
#include "os/lnx/futex.h"
#include "os/lnx/transfer_queue.h"
#include "os/lnx/waits.h"

namespace kiv::os {
namespace {

constexpr uint64_t kSignalled = 1;
constexpr uint64_t kManual = 2;
constexpr uint64_t kOneGrant = 4;
constexpr uint64_t kGrantsMask = uint64_t{0xFFFFF} << 2;
constexpr uint64_t kOneRound = uint64_t{1} << 22;
constexpr uint64_t kRoundMask = uint64_t{0x1FF} << 22;
constexpr uint64_t kTransfers = uint64_t{1} << 31;
constexpr uint32_t kUsersToGrantsShift = 30;
constexpr uint32_t kLaterGrantDelayMs = 5;

static_assert(kUsersMask >> kUsersToGrantsShift == kGrantsMask);

bool IsSignalled(uint64_t state) { return (state & kSignalled) != 0; }
bool IsManual(uint64_t state) { return (state & kManual) != 0; }
bool HasTransfers(uint64_t state) { return (state & kTransfers) != 0; }
bool HasGrants(uint64_t state) { return (state & kGrantsMask) != 0; }
uint64_t GrantsForAll(uint64_t state) { return (state & kUsersMask) >> kUsersToGrantsShift; }
bool AllAreGranted(uint64_t state) { return (state & kGrantsMask) == GrantsForAll(state); }

uint64_t WithNextRound(uint64_t state) {
  return (state & ~kRoundMask) | ((state + kOneRound) & kRoundMask);
}

// What a waiter compares to see whether a signal has made grants since. Their number does not show
// that: it also changes when an older waiter takes its grant.
uint64_t RoundOf(uint64_t state) { return state & kRoundMask; }

uint64_t WhenSignalled(uint64_t state) {
  if (IsManual(state)) {
    return WithNextRound((state & ~kGrantsMask) | GrantsForAll(state) | kSignalled);
  }
  return AllAreGranted(state) ? state | kSignalled : WithNextRound(state + kOneGrant);
}

// A waiting thread, one of the word's users.
class Waiter {
 public:
  // `arrival` is the state with this user in it. Grants in it are for threads that came before.
  Waiter(ObjectWord* word, uint64_t arrival, uint32_t timeoutMs)
      : word_(word),
        arrivalRound_(RoundOf(arrival)),
        mayTake_(!HasGrants(arrival)),
        deadline_(DeadlineAfter(timeoutMs)) {}

  // Waits for a grant. Leaves the event. `last` is set as LeaveObject returns it.
  Wait Await(bool* last) {
    while (true) {
      const uint64_t state = word_->load(std::memory_order_relaxed);
      if (RoundOf(state) != arrivalRound_) mayTake_ = true;
      if (HasGrants(state) && (mayTake_ || AllAreGranted(state))) {
        if (Leave(state, state - kOneGrant, last)) return kSignalledWait;
      } else if (IsPast(deadline_)) {
        if (Leave(state, state, last)) return kTimedOutWait;
      } else {
        Rest(state);
      }
    }
  }

 private:
  // The sleep is limited while older grants are not taken: the round may have come full circle
  // between this thread's look and its sleep.
  void Rest(uint64_t state) {
    const Deadline limit =
        HasGrants(state) ? EarlierOf(deadline_, DeadlineAfter(kLaterGrantDelayMs)) : deadline_;
    if (HasTransfers(state)) return AwaitTransfer(word_, static_cast<uint32_t>(state), limit);
    const Sleep sleep =
        SleepOn(SleepersHalf(word_), static_cast<uint32_t>(state), limit, Scope::kProcess);
    // The kernel may have woken this thread in place of an older one: it wakes real-time threads
    // first. A manual event wakes all threads, and each of the older ones needs its grant.
    if (sleep == Sleep::kWoken && !IsManual(state)) mayTake_ = true;
  }

  // acquire: pairs with SignalEventIn. release: for the thread that ends the object.
  bool Leave(uint64_t state, uint64_t next, bool* last) {
    *last = IsClosedWithoutUsers(next - kOneUser);
    return word_->compare_exchange_weak(state, next - kOneUser, std::memory_order_acq_rel,
                                        std::memory_order_relaxed);
  }

  ObjectWord* word_;
  uint64_t arrivalRound_;
  bool mayTake_;
  Deadline deadline_;
};

ObjectWord* WordIn(Slot* slot) { return &ContentOf<EventContent>(slot)->word; }

// Open, and no reason to do more than look. relaxed: the caller looks again.
bool IsUnsignalled(const ObjectWord& word, uint64_t identity) {
  const uint64_t state = word.load(std::memory_order_relaxed);
  return IsOpen(state, identity) && !IsSignalled(state) && !HasTransfers(state);
}

// What a passing thread leaves of a signalled event.
uint64_t AfterPassing(uint64_t state) { return IsManual(state) ? state : state & ~kSignalled; }

[[gnu::noinline]] Wait WaitSlowly(Slot* slot, uint64_t identity, uint32_t timeoutMs) {
  ObjectWord* word = WordIn(slot);
  // A thread that only tests the event must not miss a transfer that has ended already.
  if (HasTransfers(word->load(std::memory_order_relaxed))) {
    CollectEndedTransfers();
  } else if (timeoutMs != 0) {
    LookBriefly([=] { return !IsUnsignalled(*word, identity); });
  }
  uint64_t state = word->load(std::memory_order_relaxed);
  while (IsOpen(state, identity)) {
    const bool passes = IsSignalled(state);
    if (!passes && timeoutMs == 0) return kTimedOutWait;
    if (!passes && IsFullOfUsers(state)) return FailedWait(EAGAIN);
    const uint64_t next = passes ? AfterPassing(state) : state + kOneUser;
    // acquire: pairs with SignalEventIn.
    if (!word->compare_exchange_weak(state, next, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      continue;
    }
    if (passes) return kSignalledWait;
    bool last = false;
    const Wait waited = Waiter(word, next, timeoutMs).Await(&last);
    if (last) FreeSlot(slot);
    return waited;
  }
  return FailedWait(EBADF);
}

[[gnu::noinline]] Result SignalWithUsers(ObjectWord* word, uint64_t identity) {
  uint64_t state = word->load(std::memory_order_relaxed);
  while (IsOpen(state, identity)) {
    // release: pairs with WaitForEvent.
    if (!word->compare_exchange_weak(state, WhenSignalled(state), std::memory_order_release,
                                     std::memory_order_relaxed)) {
      continue;
    }
    if (!AllAreGranted(state)) {
      WakeSleepers(SleepersHalf(word), IsManual(state) ? kAllSleepers : 1, Scope::kProcess);
    }
    if (HasTransfers(state)) WakeAwaiting(word);
    return {true, 0};
  }
  return {false, EBADF};
}

}  // namespace

ValueResult<void*> MakeEvent(EventKind kind, bool signalled) {
  Slot* slot = TakeSlot();
  if (slot == nullptr) return {false, ENOMEM, nullptr};
  auto* event = ContentOf<EventContent>(slot);
  event->pendingTransfers.store(0, std::memory_order_relaxed);
  const uint64_t state = (kind == EventKind::kManual ? kManual : 0) | (signalled ? kSignalled : 0);
  StartWord(&event->word, slot, static_cast<uint32_t>(state));
  return {true, 0, PublishSlot(slot, Kind::kEvent)};
}

Wait WaitForEvent(Slot* slot, uint64_t identity, uint32_t timeoutMs) {
  ObjectWord* word = WordIn(slot);
  uint64_t state = word->load(std::memory_order_relaxed);
  while (IsOpen(state, identity) && IsSignalled(state)) {
    // acquire: pairs with SignalEventIn.
    if (word->compare_exchange_weak(state, AfterPassing(state), std::memory_order_acquire,
                                    std::memory_order_relaxed)) {
      return kSignalledWait;
    }
  }
  return WaitSlowly(slot, identity, timeoutMs);
}

Result SignalEventIn(Slot* slot, uint64_t identity) {
  ObjectWord* word = WordIn(slot);
  uint64_t state = word->load(std::memory_order_relaxed);
  while (IsOpen(state, identity) && !HasUsers(state) && !HasTransfers(state)) {
    // release: pairs with WaitForEvent; what the signalling thread wrote is visible to the waiter.
    // An event that is signalled already is written too, for the sake of that order.
    if (word->compare_exchange_weak(state, state | kSignalled, std::memory_order_release,
                                    std::memory_order_relaxed)) {
      return {true, 0};
    }
  }
  return SignalWithUsers(word, identity);
}

Result UnsignalEventIn(Slot* slot, uint64_t identity) {
  ObjectWord* word = WordIn(slot);
  uint64_t state = word->load(std::memory_order_relaxed);
  while (IsOpen(state, identity)) {
    // acq_rel: orders the reset between the signals before and after it.
    if (word->compare_exchange_weak(state, state & ~kSignalled, std::memory_order_acq_rel,
                                    std::memory_order_relaxed)) {
      return {true, 0};
    }
  }
  return {false, EBADF};
}

bool BeginTransferOn(void* event) {
  Slot* slot = FindSlot(event, Kind::kEvent);
  if (slot == nullptr) return false;
  auto* content = ContentOf<EventContent>(slot);
  uint64_t state = content->word.load(std::memory_order_relaxed);
  while (IsOpen(state, IdentityOf(event))) {
    // relaxed: the bit carries no data.
    if (!content->word.compare_exchange_weak(state, state | kTransfers,
                                             std::memory_order_relaxed)) {
      continue;
    }
    content->pendingTransfers.fetch_add(1, std::memory_order_relaxed);
    // Sleeping threads look again, and then help to collect.
    if (HasUsers(state) && !HasTransfers(state)) {
      WakeSleepers(SleepersHalf(&content->word), kAllSleepers, Scope::kProcess);
    }
    return true;
  }
  return false;
}

const ObjectWord* EndTransferOn(void* event) {
  Slot* slot = FindSlot(event, Kind::kEvent);
  if (slot == nullptr) return nullptr;
  auto* content = ContentOf<EventContent>(slot);
  uint64_t state = content->word.load(std::memory_order_relaxed);
  const bool isLast = content->pendingTransfers.load(std::memory_order_relaxed) == 1;
  while (IsOpen(state, IdentityOf(event))) {
    const uint64_t next = WhenSignalled(state) & ~(isLast ? kTransfers : 0);
    // release: pairs with WaitForEvent, as in SignalEvent.
    if (!content->word.compare_exchange_weak(state, next, std::memory_order_release,
                                             std::memory_order_relaxed)) {
      continue;
    }
    content->pendingTransfers.fetch_sub(1, std::memory_order_relaxed);
    return &content->word;
  }
  return nullptr;
}

void CancelTransferOn(void* event) {
  Slot* slot = FindSlot(event, Kind::kEvent);
  if (slot == nullptr) return;
  auto* content = ContentOf<EventContent>(slot);
  uint64_t state = content->word.load(std::memory_order_relaxed);
  const bool isLast = content->pendingTransfers.load(std::memory_order_relaxed) == 1;
  while (IsOpen(state, IdentityOf(event))) {
    if (!content->word.compare_exchange_weak(state, state & ~(isLast ? kTransfers : 0),
                                             std::memory_order_relaxed)) {
      continue;
    }
    content->pendingTransfers.fetch_sub(1, std::memory_order_relaxed);
    return;
  }
}

}  // namespace kiv::os
