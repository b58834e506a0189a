#include "os/lnx/transfer_queue.h"

#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "os/direct_files.h"
#include "os/kernel_objects.h"
#include "os/lnx/event.h"
#include "os/lnx/raw_transfers.h"
#include "os/lnx/transfer_kernel.h"
#include "os/lnx/transfer_record.h"

namespace kiv::os {
namespace {

constexpr uint32_t kEndsAtATime = 64;

// A sleeping thread, on its own stack. `wake` is the word on which it sleeps.
struct Awaiting {
  const ObjectWord* event;  // null: it waits for room for another transfer
  std::atomic<uint32_t> wake;
  Awaiting* next;
  Awaiting* previous;
};

// The state of the process. `mutex` guards everything.
struct Queue {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  const TransferKernel* kernel = nullptr;
  bool chosen = false;        // `kernel` is final; null then means that there is none
  uint32_t inFlight = 0;      // transfers that have been started and not collected
  bool isLed = false;         // a thread is in kernel->collect
  bool leaderSleeps = false;  // that thread may sleep
  const ObjectWord* leaderEvent = nullptr;
  Awaiting* first = nullptr;  // sleeping threads, oldest first
  Awaiting* last = nullptr;
};

constinit Queue queue;

class Lock {
 public:
  Lock() { pthread_mutex_lock(&queue.mutex); }
  ~Lock() { pthread_mutex_unlock(&queue.mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

// ---- The kernel's service ----

// A child has one thread and none of its parent's transfers. The mutex may be held by a thread that
// the child does not have.
void StartAgainInChild() {
  const TransferKernel* inherited = queue.kernel;
  std::memset(static_cast<void*>(&queue), 0, sizeof queue);
  pthread_mutex_init(&queue.mutex, nullptr);
  if (inherited != nullptr) inherited->drop();
}

// Runs when the library is unloaded and when the process ends. Transfers that are still in flight
// keep the service.
[[gnu::destructor]] void CloseQueue() {
  const Lock lock;
  if (queue.kernel == nullptr || queue.inFlight != 0 || queue.isLed) return;
  queue.kernel->drop();
  queue.kernel = nullptr;
  queue.chosen = false;
}

// Tests choose a service by name.
bool MayUse(const TransferKernel& kernel) {
  const char* wanted = std::getenv("KIVSDU_ASYNC_IO");
  return wanted == nullptr || std::strcmp(wanted, kernel.name) == 0;
}

void WatchForks() {
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  pthread_once(&once, [] { pthread_atfork(nullptr, nullptr, StartAgainInChild); });
}

// Locked.
const TransferKernel* ChosenKernel() {
  if (queue.chosen) return queue.kernel;
  WatchForks();
  for (const TransferKernel* kernel : {&ringKernel, &aioKernel}) {
    if (queue.kernel == nullptr && MayUse(*kernel) && kernel->open()) queue.kernel = kernel;
  }
  queue.chosen = true;
  return queue.kernel;
}

// ---- Sleeping threads; all locked ----

void Append(Awaiting* thread) {
  thread->next = nullptr;
  thread->previous = queue.last;
  (queue.last == nullptr ? queue.first : queue.last->next) = thread;
  queue.last = thread;
}

void Remove(Awaiting* thread) {
  (thread->next == nullptr ? queue.last : thread->next->previous) = thread->previous;
  (thread->previous == nullptr ? queue.first : thread->previous->next) = thread->next;
}

void Wake(Awaiting* thread) {
  thread->wake.store(1, std::memory_order_relaxed);
  WakeSleepers(&thread->wake, 1, Scope::kProcess);
}

void WakeThreadsOf(const ObjectWord* event) {
  for (Awaiting* thread = queue.first; thread != nullptr; thread = thread->next) {
    if (thread->event == event) Wake(thread);
  }
}

// Somebody has to lead while transfers are in flight and threads wait.
void OfferLead() {
  if (!queue.isLed && queue.inFlight != 0 && queue.first != nullptr) Wake(queue.first);
}

// ---- Ends of transfers ----

// Locked. The event is read first: the record may be gone as soon as its outcome is stored.
void Finish(const TransferEnd& end) {
  if (end.record == nullptr) return;
  --queue.inFlight;
  void* event = end.record->event;
  const ValueResult<uint32_t> outcome = OutcomeOf(end.answer, end.isRead, false);
  StoreOutcome(end.record, outcome.error, outcome.value);
  const ObjectWord* word = EndTransferOn(event);
  if (word != nullptr) WakeThreadsOf(word);
}

// The caller has taken the lead, and gives it back. Without a deadline it does not wait.
void Lead(const Deadline* deadline) {
  TransferEnd ends[kEndsAtATime];
  const uint32_t count = queue.kernel->collect(ends, kEndsAtATime, deadline);
  const Lock lock;
  for (uint32_t i = 0; i < count; ++i) Finish(ends[i]);
  if (count != 0) WakeThreadsOf(nullptr);
  queue.isLed = false;
  queue.leaderSleeps = false;
  queue.leaderEvent = nullptr;
  OfferLead();
}

// Locked. Whether the caller leads now.
bool TakeLead(const ObjectWord* event, bool sleeps) {
  if (queue.isLed || queue.inFlight == 0) return false;
  queue.isLed = true;
  queue.leaderSleeps = sleeps;
  queue.leaderEvent = event;
  return true;
}

bool HasValue(const ObjectWord* event, uint32_t seen) {
  return static_cast<uint32_t>(event->load(std::memory_order_relaxed)) == seen;
}

void SleepUntilWoken(Awaiting* self, const Deadline& deadline) {
  Sleep sleep = Sleep::kNoChange;
  while (self->wake.load(std::memory_order_relaxed) == 0 && sleep != Sleep::kTimedOut) {
    sleep = SleepOn(&self->wake, 0, deadline, Scope::kProcess);
  }
  const Lock lock;
  Remove(self);
  OfferLead();
}

void Await(const ObjectWord* event, uint32_t seen, const Deadline& deadline) {
  Awaiting self = {event, {0}, nullptr, nullptr};
  bool leads = false;
  {
    const Lock lock;
    if (event != nullptr && !HasValue(event, seen)) return;
    leads = TakeLead(event, true);
    if (!leads) Append(&self);
  }
  if (leads) {
    Lead(&deadline);
  } else {
    SleepUntilWoken(&self, deadline);
  }
}

// ---- Starting ----

// How long a thread whose transfer found no room waits before it tries again. The end of any
// transfer wakes it earlier.
constexpr uint32_t kRoomPollMs = 1;

// Without a service of the kernel, the transfer ends here. Locked.
void RunAtOnce(int descriptor, const Transfer& transfer) {
  const int64_t offset = OffsetIn(transfer.record);
  const int64_t count = transfer.isRead
                            ? ReadRawAt(descriptor, transfer.buffer, transfer.sizeBytes, offset)
                            : WriteRawAt(descriptor, transfer.buffer, transfer.sizeBytes, offset);
  Finish({transfer.record, transfer.isRead, count == -1 ? -int64_t{errno} : count});
}

// Locked. EAGAIN if other transfers have to end first.
Result HandOver(int descriptor, const Transfer& transfer) {
  const TransferKernel* kernel = ChosenKernel();
  if (kernel != nullptr && queue.inFlight >= kernel->capacity) return {false, EAGAIN};
  if (!BeginTransferOn(transfer.record->event)) return {false, EBADF};
  Result started = {false, EAGAIN};
  if (kernel != nullptr) started = kernel->start(descriptor, transfer);
  ++queue.inFlight;
  if (started.ok) {
    OfferLead();
    return started;
  }
  if (started.error == EAGAIN && queue.inFlight == 1) {
    RunAtOnce(descriptor, transfer);
    return {true, 0};
  }
  --queue.inFlight;
  CancelTransferOn(transfer.record->event);
  return started;
}

}  // namespace

Result StartTransfer(int descriptor, const Transfer& transfer) {
  const Result reset = UnsignalEvent(transfer.record->event);
  if (!reset.ok) return reset;
  StoreOutcome(transfer.record, kErrorTransferPending, 0);
  while (true) {
    Result started = {false, 0};
    {
      const Lock lock;
      started = HandOver(descriptor, transfer);
    }
    if (started.ok) return {false, kErrorTransferPending};
    if (started.error != EAGAIN) {
      StoreOutcome(transfer.record, started.error, 0);
      return started;
    }
    Await(nullptr, 0, DeadlineAfter(kRoomPollMs));
  }
}

void CollectEndedTransfers() {
  {
    const Lock lock;
    if (!TakeLead(nullptr, false)) return;
  }
  Lead(nullptr);
}

void AwaitTransfer(const ObjectWord* event, uint32_t seen, const Deadline& deadline) {
  Await(event, seen, deadline);
}

void WakeAwaiting(const ObjectWord* event) {
  const Lock lock;
  WakeThreadsOf(event);
  if (queue.leaderSleeps && queue.leaderEvent == event) queue.kernel->kick();
}

const char* AsyncBackend() {
  const Lock lock;
  const TransferKernel* kernel = ChosenKernel();
  return kernel == nullptr ? "none" : kernel->name;
}

}  // namespace kiv::os
