// Lower bounds of the lock algorithms: only the locked instructions of one entry and one exit, on
// words placed as in the lock. No calls, no counting, no owner.
#ifndef KIV_BENCH_LOCK_LIMITS_H
#define KIV_BENCH_LOCK_LIMITS_H

#include <atomic>
#include <cstdint>

namespace kiv::bench {

// Test-and-set: exchanges the word twice.
struct alignas(64) WordLimit {
  std::atomic<uint32_t> word{0};

  void EnterAndLeave() {
    word.exchange(1);
    word.exchange(0);
  }
};

// Ticket: draws a ticket, then executes a full fence, which is a locked instruction, before serving
// the next.
struct alignas(64) TicketLimit {
  alignas(64) std::atomic<uint32_t> owner{0};
  alignas(64) std::atomic<int32_t> next{0};

  void EnterAndLeave() {
    next.fetch_add(1);
    owner.exchange(0);
  }
};

// The words that a use of the reader-writer lock changes.
struct alignas(64) RwWords {
  std::atomic<uint64_t> readerTail{0};
  std::atomic<uint64_t> writerHead{0};
  std::atomic<uint64_t> writerTail{0};
  std::atomic<uint64_t> countAndFlags{0};

  // A compare-and-swap loop. Compilers make one of an atomic operation whose old value is used.
  template <typename Change>
  void Swap(Change change) {
    uint64_t before = countAndFlags.load();
    while (!countAndFlags.compare_exchange_weak(before, change(before))) {
    }
  }
};

// Reading: counts the reader in and out.
struct ReadLimit : RwWords {
  void EnterAndLeave() {
    Swap([](uint64_t word) { return word + 8; });
    countAndFlags.fetch_sub(8);
  }
};

// Writing: swings the tail, and marks interest and activity; at the end clears both marks and resets
// the tail.
struct WriteLimit : RwWords {
  void EnterAndLeave() {
    writerTail.exchange(1);
    Swap([](uint64_t word) { return word | 3; });
    Swap([](uint64_t word) { return word & ~uint64_t{3}; });
    uint64_t expected = 1;
    writerTail.compare_exchange_strong(expected, 0);
  }
};

}  // namespace kiv::bench

#endif
