// The reader-writer lock, with every kind of waiting.
#include <atomic>
#include <cstdio>
#include <string>

#include "atomic.h"
#include "kivsdu/rwlock.h"
#include "kivsdu/status.h"
#include "sdrwlock/node.h"
#include "stress/delay.h"
#include "stress/guarded_data.h"
#include "stress/subject.h"

namespace kiv::stress {
namespace {

constexpr uint64_t kWriters = 3;     // both flags of a writer: interested and active
constexpr uint32_t kReaderUnit = 8;  // one counted reader
constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

// Wait limits of readers or writers, and how both kinds of thread wait.
struct Limits {
  int32_t spinLoops;
  int32_t spinYields;
  int32_t waitLoops;
};
struct Waiting {
  uint8_t blockingAllowed;
  Limits readers;
  Limits writers;
};

// Threads that only write, that read and write, and that read almost always.
constexpr uint32_t kWritesOneIn[] = {1, 1, 2, 8, 1024, 1024};

constexpr Limits kSpinThenSleep = {1, 0, 1};
constexpr Limits kSleepAtOnce = {0, 0, 1};
constexpr Limits kNeverSleep = {1, 2, 0};

Limits AnyLimits(Random* random) {
  return {static_cast<int32_t>(random->Below(3)), static_cast<int32_t>(random->Below(8)),
          static_cast<int32_t>(random->Below(8)) - 1};
}

class RWLockSubject : public Subject {
 public:
  RWLockSubject(const Waiting& waiting, Random* random)
      : slot_(static_cast<int32_t>(random->Below(KIV_RWLOCK_SLOTS))) {
    KivRWLockInit(nullptr, 0, &lock_, waiting.blockingAllowed, slot_);
    lock_.readerSpinLoops = waiting.readers.spinLoops;
    lock_.readerSpinYields = waiting.readers.spinYields;
    lock_.readerWaitLoops = waiting.readers.waitLoops;
    lock_.writerSpinLoops = waiting.writers.spinLoops;
    lock_.writerSpinYields = waiting.writers.spinYields;
    lock_.writerWaitLoops = waiting.writers.waitLoops;
  }

  class RWLockVisitor;
  std::unique_ptr<Visitor> MakeVisitor(Worker* worker) override;

  void ExpectFree() override {
    Expect(lock_.countAndFlags == 0, "the word was not 0 when all had left");
    Expect(lock_.readerTail == nullptr, "a reader was queued when all had left");
    Expect(lock_.writerTail == nullptr, "a writer was queued when all had left");
    Expect(data_.writes() == writersEntered_.load(kRelaxed), "writes were lost");
  }

  std::string Describe() const override {
    auto* lock = const_cast<KivRWLock*>(&lock_);
    char text[160];
    std::snprintf(text, sizeof text,
                  "word 0x%llx, reader tail %p, writer head %p, writer tail %p, blocking %s",
                  static_cast<unsigned long long>(Load(&lock->countAndFlags)),
                  static_cast<void*>(Load(&lock->readerTail)),
                  static_cast<void*>(Load(&lock->writerHead)),
                  static_cast<void*>(Load(&lock->writerTail)),
                  lock->blockingAllowed != 0 ? "allowed" : "forbidden");
    return text;
  }

 private:
  template <typename T>
  static T Load(T* field) {
    return AtomicRef<T>(*field).load(kRelaxed);
  }

  // Whether a reader saw a waiting writer, which it must not overtake.
  struct Sight {
    bool writerWaits;
    uint64_t writersEntered;
  };

  // An active writer waits while a reader is counted. If no reader is queued after that, the next
  // reader to come queues behind that writer. The order of the three reads matters.
  Sight LookForWriter() {
    const uint64_t entered = writersEntered_.load(kRelaxed);
    const uint64_t word = Load(&lock_.countAndFlags);
    const bool noneQueued = Load(&lock_.readerTail) == nullptr;
    const bool waits = (word & kWriters) == kWriters && static_cast<uint32_t>(word) >= kReaderUnit;
    return {waits && noneQueued, entered};
  }

  KivRWLock lock_;
  GuardedData data_;
  const KivRWLockNode* promisedTo_ = nullptr;  // guarded by the lock: the writer to enter next
  std::atomic<uint64_t> writersEntered_{0};    // relaxed: must not order what the lock has to
  const int32_t slot_;
};

class RWLockSubject::RWLockVisitor : public Visitor {
 public:
  RWLockVisitor(RWLockSubject* subject, Worker* worker)
      : subject_(*subject),
        lock_(&subject->lock_),
        worker_(*worker),
        writesOneIn_(worker->random().OneOf(kWritesOneIn)) {}
  ~RWLockVisitor() override { FreeNodes(); }
  RWLockVisitor(const RWLockVisitor&) = delete;
  RWLockVisitor& operator=(const RWLockVisitor&) = delete;

  void Visit() override {
    if (worker_.random().OneIn(writesOneIn_)) {
      Write();
    } else {
      Read();
    }
    if (worker_.random().OneIn(16)) {
      Expect(KivSdEndRW(nullptr, &table_, lock_) == KIV_ST_MUTEX_CLEAR,
             "a thread released a lock that it did not hold");
    }
    // A thread may free its nodes as soon as it has left, even if its waker is not done yet.
    if (worker_.random().OneIn(32)) FreeNodes();
    worker_.Now("is outside");
  }

 private:
  void Start(uint32_t mode) {
    const uint32_t status = mode == KIV_RWLOCK_WRITE ? KivSdStartWrite(nullptr, &table_, lock_)
                                                     : KivSdStartRead(nullptr, &table_, lock_);
    Expect(status == KIV_ST_OK, "the lock could not be taken");
  }

  void End() {
    Expect(KivSdEndRW(nullptr, &table_, lock_) == KIV_ST_OK, "the lock could not be released");
  }

  void ExpectMode(uint32_t mode) {
    Expect(KivSdModeRW(nullptr, &table_, lock_) == mode, "a thread had the wrong mode");
  }

  void FreeNodes() {
    worker_.Now("frees its nodes");
    KivRWLockFreeQNodes(&table_);
  }

  // The thread uses one lock and therefore has one node.
  const KivRWLockNode* node() const { return table_.active[subject_.slot_]; }

  void Write() {
    worker_.Now("takes it for writing");
    Start(KIV_RWLOCK_WRITE);
    worker_.Now("is inside, writing");
    worker_.CountEntry();
    subject_.writersEntered_.fetch_add(1, kRelaxed);
    Expect(subject_.promisedTo_ == nullptr || subject_.promisedTo_ == node(),
           "a writer overtook the one that was next");
    subject_.promisedTo_ = nullptr;
    const uint32_t again = worker_.random().OneIn(4) ? worker_.random().Between(1, 3) : 0;
    for (uint32_t i = 0; i < again; ++i) {
      Start(worker_.random().OneIn(2) ? KIV_RWLOCK_WRITE : KIV_RWLOCK_READ);
    }
    subject_.data_.Write(worker_);
    for (uint32_t i = 0; i < again; ++i) End();
    ExpectMode(KIV_RWLOCK_WRITE);
    // If the next writer is linked already, this writer hands the lock to it directly.
    subject_.promisedTo_ = node()->queueLink.load(kRelaxed);
    worker_.Now("releases it, writing");
    End();
  }

  void Read() {
    const Sight sight = subject_.LookForWriter();
    worker_.Now("takes it for reading");
    Start(KIV_RWLOCK_READ);
    worker_.Now("is inside, reading");
    worker_.CountEntry();
    Expect(subject_.promisedTo_ == nullptr, "a reader came between two writers");
    Expect(!sight.writerWaits || subject_.writersEntered_.load(kRelaxed) != sight.writersEntered,
           "a reader overtook a writer that waited");
    const bool again = worker_.random().OneIn(4);
    if (again) Start(KIV_RWLOCK_READ);
    subject_.data_.Read();
    if (worker_.random().OneIn(8)) {
      Expect(KivSdStartWrite(nullptr, &table_, lock_) == KIV_ST_MUTEX_REQUEST,
             "a reader became a writer");
    }
    if (again) End();
    ExpectMode(KIV_RWLOCK_READ);
    worker_.Now("releases it, reading");
    End();
  }

  RWLockSubject& subject_;
  KivRWLock* const lock_;
  Worker& worker_;
  const uint32_t writesOneIn_;  // one in so many visits writes, the others read
  KivRWLockTable table_{};
};

std::unique_ptr<Visitor> RWLockSubject::MakeVisitor(Worker* worker) {
  return std::make_unique<RWLockVisitor>(this, worker);
}

template <uint8_t kBlockingAllowed, const Limits& kReaderLimits, const Limits& kWriterLimits>
std::unique_ptr<Subject> Make(Random* random) {
  return std::make_unique<RWLockSubject>(Waiting{kBlockingAllowed, kReaderLimits, kWriterLimits},
                                         random);
}

std::unique_ptr<Subject> MakeWithAnyLimits(Random* random) {
  const Limits readers = AnyLimits(random);
  const Limits writers = AnyLimits(random);
  return std::make_unique<RWLockSubject>(Waiting{1, readers, writers}, random);
}

}  // namespace

const std::vector<Kind>& RWLockKinds() {
  static const std::vector<Kind> kinds = {
      {"rwlock", 16, Make<1, kSpinThenSleep, kSpinThenSleep>},
      {"rwlock-sleeping", 16, Make<1, kSleepAtOnce, kSleepAtOnce>},
      {"rwlock-yielding", 16, Make<1, kNeverSleep, kNeverSleep>},
      {"rwlock-any-limits", 16, MakeWithAnyLimits},
      // Waiters that may not block never yield: with more threads than processors no thread would
      // make progress.
      {"rwlock-spinning", 2, Make<0, kSpinThenSleep, kSpinThenSleep>},
  };
  return kinds;
}

}  // namespace kiv::stress
