// Heap-allocated and lightweight spinlocks, in both designs.
#include <atomic>
#include <cstddef>
#include <string>

#include "kivsdu/spinlock.h"
#include "kivsdu/sync.h"
#include "sdsync/spinlock.h"
#include "stress/guarded_data.h"
#include "stress/subject.h"

namespace kiv::stress {
namespace {

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

// Reads a field of a lock whose layout no header declares.
template <typename T>
T FieldAt(const KivSdLWSpinlock& lock, size_t offset) {
  auto* storage = reinterpret_cast<unsigned char*>(const_cast<uint64_t*>(lock.opaque));
  return std::atomic_ref<T>(*reinterpret_cast<T*>(storage + offset)).load(kRelaxed);
}

std::string DescribeWord(uint32_t word, uint32_t owner, int32_t count) {
  return "word " + std::to_string(word) + ", owner " + std::to_string(owner) + ", count " +
         std::to_string(count);
}

std::string DescribeTickets(int64_t serving, int64_t next, uint32_t owner, int32_t count) {
  return "serving " + std::to_string(serving) + ", next " + std::to_string(next) + ", owner " +
         std::to_string(owner) + ", count " + std::to_string(count);
}

// ---- The four locks, with one interface ----

template <bool kTickets>
class HeapLock {
 public:
  static constexpr bool kHasTickets = kTickets;
  static constexpr bool kIsReentrant = true;

  HeapLock() : lock_(KivSdSpinlockCreate(nullptr, 0)) {}
  ~HeapLock() { KivSdSpinlockDestroy(nullptr, lock_); }
  HeapLock(const HeapLock&) = delete;
  HeapLock& operator=(const HeapLock&) = delete;

  void Acquire(uint32_t thread) { KivSdSpinlockAcquire(lock_, thread); }
  void Release() { KivSdSpinlockRelease(lock_); }
  bool IsOwnedBy(uint32_t thread) const { return KivSdSpinlockOwner(lock_, thread) != 0; }
  bool IsTaken(uint32_t times) const { return KivSdGetSpinlockRefCount(lock_) == times; }

  int64_t TicketsDrawn() const { return lock_->ticket.next.load(kRelaxed); }
  int64_t HeldTicket() const { return lock_->ticket.held; }
  bool IsFree() const {
    if (!kTickets) return lock_->word.word.load(kRelaxed) == 0 && IsOwnedBy(0) && IsTaken(0);
    return lock_->ticket.serving.load(kRelaxed) == TicketsDrawn() && IsOwnedBy(0) && IsTaken(0);
  }
  std::string Describe() const {
    if (!kTickets) {
      const TestAndSetLock& lock = lock_->word;
      const Holder holder = lock.holder.load(kRelaxed);
      return DescribeWord(lock.word.load(kRelaxed), holder.owner, holder.count);
    }
    const TicketLock& lock = lock_->ticket;
    const Holder holder = lock.holder.load(kRelaxed);
    return DescribeTickets(lock.serving.load(kRelaxed), TicketsDrawn(), holder.owner, holder.count);
  }

 protected:
  KivSdSpinlock* const lock_;
};

// The non-reentrant pair. Test-and-set counts its acquisitions even so.
template <bool kTickets>
class PlainHeapLock : public HeapLock<kTickets> {
 public:
  static constexpr bool kIsReentrant = false;

  void Acquire(uint32_t thread) { KivSdSpinlockAcquireNonReentrant(this->lock_, thread); }
  void Release() { KivSdSpinlockReleaseNonReentrant(this->lock_); }
  bool IsTaken(uint32_t times) const { return HeapLock<kTickets>::IsTaken(kTickets ? 0 : times); }
};

template <bool kTickets>
class LightweightLock {
 public:
  static constexpr bool kHasTickets = kTickets;
  static constexpr bool kIsReentrant = true;

  LightweightLock() { KivSdLWSpinlockInit(&lock_); }
  ~LightweightLock() { KivSdLWSpinlockDestroy(&lock_); }
  LightweightLock(const LightweightLock&) = delete;
  LightweightLock& operator=(const LightweightLock&) = delete;

  // The lock looks up the calling thread itself.
  void Acquire(uint32_t /*thread*/) { KivSdLWSpinlockAcquire(&lock_); }
  void Release() { KivSdLWSpinlockRelease(&lock_); }
  bool IsOwnedBy(uint32_t /*thread*/) const { return KivSdLWSpinlockOwner(&lock_) != 0; }
  bool IsTaken(uint32_t times) const { return Count() == static_cast<int32_t>(times); }

  int64_t TicketsDrawn() const { return FieldAt<int32_t>(lock_, 8); }
  int64_t HeldTicket() const { return FieldAt<int64_t>(lock_, 0); }
  bool IsFree() const {
    const bool free = kTickets ? HeldTicket() == TicketsDrawn() : Word() == 0;
    return free && Owner() == 0 && Count() == 0;
  }
  std::string Describe() const {
    return kTickets ? DescribeTickets(HeldTicket(), TicketsDrawn(), Owner(), Count())
                    : DescribeWord(Word(), Owner(), Count());
  }

 private:
  uint32_t Word() const { return FieldAt<uint32_t>(lock_, 0); }
  uint32_t Owner() const { return FieldAt<uint32_t>(lock_, kTickets ? 16 : 12); }
  int32_t Count() const {
    return kTickets ? FieldAt<int32_t>(lock_, 12) : int32_t{FieldAt<int16_t>(lock_, 8)};
  }

  KivSdLWSpinlock lock_;
};

// ---- Stress ----

template <typename Lock>
class SpinlockSubject : public Subject {
 public:
  class SpinlockVisitor : public Visitor {
   public:
    SpinlockVisitor(SpinlockSubject* subject, Worker* worker)
        : subject_(*subject), worker_(*worker) {}

    void Visit() override {
      Lock& lock = subject_.lock_;
      const uint32_t me = worker_.number();
      Expect(!lock.IsOwnedBy(me), "a thread owned a lock that it did not hold");
      worker_.Now("takes it");
      const int64_t drawn = Lock::kHasTickets ? lock.TicketsDrawn() : 0;
      lock.Acquire(me);
      worker_.Now("is inside");
      worker_.CountEntry();
      subject_.CheckOrder(drawn);
      Expect(lock.IsOwnedBy(me), "the holder was not the lock's owner");
      Expect(lock.IsTaken(1), "the count was not 1 after one acquire");
      if (Lock::kIsReentrant && worker_.random().OneIn(4)) TakeAgain();
      subject_.data_.Write(worker_);
      worker_.Now("releases it");
      lock.Release();
      worker_.Now("is outside");
    }

   private:
    void TakeAgain() {
      Lock& lock = subject_.lock_;
      const uint32_t depth = worker_.random().Between(2, 4);
      for (uint32_t times = 2; times <= depth; ++times) {
        lock.Acquire(worker_.number());
        Expect(lock.IsTaken(times), "a re-entry was not counted");
      }
      subject_.data_.Write(worker_);
      ++subject_.writesInside_;
      for (uint32_t left = depth - 1; left >= 1; --left) {
        lock.Release();
        Expect(lock.IsTaken(left), "a release was not counted");
        Expect(lock.IsOwnedBy(worker_.number()), "the lock was freed before the last release");
      }
    }

    SpinlockSubject& subject_;
    Worker& worker_;
  };

  std::unique_ptr<Visitor> MakeVisitor(Worker* worker) override {
    return std::make_unique<SpinlockVisitor>(this, worker);
  }

  void ExpectFree() override {
    Expect(lock_.IsFree(), "the lock was not free when all had left");
    Expect(data_.writes() == entries_ + writesInside_, "writes were lost");
  }

  std::string Describe() const override { return lock_.Describe(); }

 private:
  // Called by the holder. With tickets, the n-th thread to enter holds ticket n, and all threads
  // that drew a ticket before this one arrived (`drawn` tickets) have entered before it.
  void CheckOrder(int64_t drawn) {
    const int64_t entry = static_cast<int64_t>(entries_++);
    if (!Lock::kHasTickets) return;
    Expect(lock_.HeldTicket() == entry, "a ticket was not served in its turn");
    Expect(entry >= drawn, "a thread overtook one that had drawn its ticket before");
  }

  Lock lock_;
  GuardedData data_;
  uint64_t entries_ = 0;       // guarded by the lock
  uint64_t writesInside_ = 0;  // by holders that had re-entered; guarded by the lock
};

template <typename Lock>
std::unique_ptr<Subject> Make(Random* /*random*/) {
  KivSdSetHardwareAcceleration(Lock::kHasTickets ? 1 : 0);
  return std::make_unique<SpinlockSubject<Lock>>();
}

}  // namespace

const std::vector<Kind>& SpinlockKinds() {
  static const std::vector<Kind> kinds = {
      {"spinlock", 16, Make<HeapLock<false>>},
      {"ticket-spinlock", 16, Make<HeapLock<true>>},
      {"spinlock-uncounted", 16, Make<PlainHeapLock<false>>},
      {"ticket-spinlock-uncounted", 16, Make<PlainHeapLock<true>>},
      {"lightweight", 16, Make<LightweightLock<false>>},
      {"ticket-lightweight", 16, Make<LightweightLock<true>>},
  };
  return kinds;
}

}  // namespace kiv::stress
