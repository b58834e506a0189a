// What no lock of these algorithms can be quicker than: the locked instructions that a taking
// and a giving back execute, on words that lie as they lie in the lock. No calls, no counting,
// no owner.
#ifndef KIV_BENCH_LOCK_LIMITS_H
#define KIV_BENCH_LOCK_LIMITS_H

#include <atomic>
#include <cstdint>

namespace kiv::bench {

// Test-and-set: the word is exchanged twice.
struct alignas(64) WordLimit {
  std::atomic<uint32_t> word{0};

  void EnterAndLeave() {
    word.exchange(1);
    word.exchange(0);
  }
};

// Ticket: one is drawn; a full fence, which is a locked instruction, comes before the next is
// served.
struct alignas(64) TicketLimit {
  alignas(64) std::atomic<uint32_t> owner{0};
  alignas(64) std::atomic<int32_t> next{0};

  void EnterAndLeave() {
    next.fetch_add(1);
    owner.exchange(0);
  }
};

// The words of the reader-writer lock that change.
struct alignas(64) RwWords {
  std::atomic<uint64_t> readerTail{0};
  std::atomic<uint64_t> writerHead{0};
  std::atomic<uint64_t> writerTail{0};
  std::atomic<uint64_t> countAndFlags{0};

  // The loop of a compare-and-swap; the compiler makes one of an operation whose old value
  // is used.
  template <typename Change>
  void Swap(Change change) {
    uint64_t before = countAndFlags.load();
    while (!countAndFlags.compare_exchange_weak(before, change(before))) {
    }
  }
};

// Reading: the tail swung, the interest marked, the reader counted, the batch taken off; and the
// reader counted out.
struct ReadLimit : RwWords {
  void EnterAndLeave() {
    readerTail.exchange(1);
    Swap([](uint64_t word) { return word | 4; });
    countAndFlags.fetch_add(4);
    readerTail.exchange(0);
    countAndFlags.fetch_sub(8);
  }
};

// Writing: the tail and the head swung, interest and activity marked; both cleared, and the tail
// taken back.
struct WriteLimit : RwWords {
  void EnterAndLeave() {
    writerTail.exchange(1);
    writerHead.exchange(1);
    Swap([](uint64_t word) { return word | 1; });
    Swap([](uint64_t word) { return word | 2; });
    Swap([](uint64_t word) { return word & ~uint64_t{3}; });
    uint64_t expected = 1;
    writerTail.compare_exchange_strong(expected, 0);
  }
};

}  // namespace kiv::bench

#endif
