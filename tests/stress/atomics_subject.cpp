// A lock built from the exported atomics, as hosts build theirs.
#include <sched.h>

#include <atomic>
#include <string>

#include "kivsdu/sync.h"
#include "stress/guarded_data.h"
#include "stress/subject.h"

namespace kiv::stress {
namespace {

class AtomicsSubject : public Subject {
 public:
  class AtomicsVisitor : public Visitor {
   public:
    AtomicsVisitor(AtomicsSubject* subject, Worker* worker)
        : subject_(*subject), worker_(*worker) {}

    void Visit() override {
      Count();
      worker_.Now("takes it");
      while (!Take()) Wait();
      worker_.Now("is inside");
      worker_.CountEntry();
      ++subject_.entries_;
      subject_.data_.Write(worker_);
      worker_.Now("releases it");
      GiveBack();
      worker_.Now("is outside");
    }

   private:
    // Uses the three possible operations at random; they must work together.
    bool Take() {
      uint64_t* word = &subject_.word_;
      switch (worker_.random().Below(3)) {
        case 0:
          return KivSdAtomicSet(word) == 0;
        case 1:
          return KivSdCmpXchgPtr(0, 1, word) != 0;
        default:
          return KivSdAtomicCompareAndSwap(word, 0, 1) != 0;
      }
    }

    void GiveBack() {
      uint64_t* word = &subject_.word_;
      switch (worker_.random().Below(3)) {
        case 0:
          return Expect(KivSdAtomicUnset(word) == 1, "a held word was not 1");
        case 1:
          return Expect(KivSdCmpXchgPtr(1, 0, word) != 0, "a held word was not 1");
        default:
          return Expect(KivSdAtomicCompareAndSwap(word, 1, 0) != 0, "a held word was not 1");
      }
    }

    // Waits on the low byte only, because the word never exceeds 1.
    void Wait() {
      if (worker_.random().OneIn(4)) {
        KivSdWaitUntilFalse(reinterpret_cast<uint8_t*>(&subject_.word_));
      } else {
        sched_yield();
      }
    }

    // Each thread's changes add up to 0, so the sum is 0 in the end.
    void Count() {
      KivSdAtomicIncrement(&subject_.sum_);
      KivSdAtomicAdd(&subject_.sum_, 5);
      KivSdAtomicDecrement(&subject_.sum_);
      KivSdAtomicAdd(&subject_.sum_, -5);
    }

    AtomicsSubject& subject_;
    Worker& worker_;
  };

  std::unique_ptr<Visitor> MakeVisitor(Worker* worker) override {
    return std::make_unique<AtomicsVisitor>(this, worker);
  }

  void ExpectFree() override {
    Expect(word_ == 0, "the word was not 0 when all had left");
    Expect(sum_ == 0, "additions were lost");
    Expect(data_.writes() == entries_, "writes were lost");
  }

  std::string Describe() const override {
    auto* self = const_cast<AtomicsSubject*>(this);
    return "word " + std::to_string(std::atomic_ref<uint64_t>(self->word_).load()) + ", sum " +
           std::to_string(std::atomic_ref<int32_t>(self->sum_).load());
  }

 private:
  alignas(8) uint64_t word_ = 0;
  int32_t sum_ = 0;
  uint64_t entries_ = 0;  // guarded by the word
  GuardedData data_;
};

}  // namespace

const std::vector<Kind>& AtomicsKinds() {
  static const std::vector<Kind> kinds = {
      {"atomics", 4,
       [](Random*) -> std::unique_ptr<Subject> { return std::make_unique<AtomicsSubject>(); }},
  };
  return kinds;
}

}  // namespace kiv::stress
