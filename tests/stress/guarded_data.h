// The data that a lock guards in a trial, with checks that fail when the lock fails.
#ifndef KIV_TESTS_STRESS_GUARDED_DATA_H
#define KIV_TESTS_STRESS_GUARDED_DATA_H

#include <atomic>
#include <cstdint>

#include "stress/delay.h"
#include "stress/worker.h"

namespace kiv::stress {

// Plain variables that only the lock orders. A sanitizer reports every access that the lock does
// not order, and the checks find holders that are inside at the same time.
class GuardedData {
 public:
  // Called by an exclusive holder.
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

  // Called by a shared holder.
  void Read() {
    readers_.fetch_add(1, std::memory_order_relaxed);
    Expect(writer_ == 0, "a reader entered while a writer was inside");
    const uint64_t seen = one_;
    Linger();
    Expect(writer_ == 0 && one_ == seen && other_ == seen, "a writer wrote while a reader read");
    readers_.fetch_sub(1, std::memory_order_relaxed);
  }

  // Number of writes; call it only when no trial runs.
  uint64_t writes() const { return one_; }

 private:
  uint32_t writer_ = 0;  // number of the writer inside; 0: none
  uint64_t one_ = 0;
  uint64_t other_ = 0;                // equal to `one_` except during a write
  std::atomic<uint32_t> readers_{0};  // relaxed: it must not order what the lock has to
};

}  // namespace kiv::stress

#endif
