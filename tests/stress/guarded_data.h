// What a lock guards in a trial, and what its holders see when the lock fails.
#ifndef KIV_TESTS_STRESS_GUARDED_DATA_H
#define KIV_TESTS_STRESS_GUARDED_DATA_H

#include <atomic>
#include <cstdint>

#include "stress/delay.h"
#include "stress/worker.h"

namespace kiv::stress {

// Plain variables, which the lock alone orders: a sanitizer sees every access that it does not
// order, and the holders see each other where two are inside.
class GuardedData {
 public:
  // By a holder that has to be alone.
  void Write(const Worker& worker) {
    Expect(writer_ == 0, "a writer entered while another was inside");
    writer_ = worker.number();
    ++one_;
    Delay();
    Expect(readers_.load(std::memory_order_relaxed) == 0, "a writer and a reader were inside");
    Expect(one_ == other_ + 1, "two writers wrote at once");
    other_ = one_;
    Linger();
    Expect(writer_ == worker.number(), "a second writer was inside");
    writer_ = 0;
  }

  // By a holder that may share.
  void Read() {
    readers_.fetch_add(1, std::memory_order_relaxed);
    Expect(writer_ == 0, "a reader entered while a writer was inside");
    const uint64_t seen = one_;
    Linger();
    Expect(writer_ == 0 && one_ == seen && other_ == seen, "a writer wrote while a reader read");
    readers_.fetch_sub(1, std::memory_order_relaxed);
  }

  // How often it was written; not while a trial runs.
  uint64_t writes() const { return one_; }

 private:
  uint32_t writer_ = 0;  // number of the one inside
  uint64_t one_ = 0;
  uint64_t other_ = 0;                // equal to `one_` but for a moment
  std::atomic<uint32_t> readers_{0};  // relaxed: it must not order what the lock has to
};

}  // namespace kiv::stress

#endif
