// The exported atomic operations. Each is a full barrier: on x86-64 because it is one locked
// instruction, elsewhere by a fence. The two waits only read; they end with a full fence.
#include "atomic.h"
#include "kivsdu/sync.h"
#include "os/thread.h"
#include "sdsync/fence.h"

using namespace kiv;

namespace {

// Compare-and-swap; returns the old value.
uint64_t Swap(uint64_t* word, uint64_t expected, uint64_t newValue) {
  AtomicRef<uint64_t>(*word).compare_exchange_strong(expected, newValue);
  FenceAfterLocked();
  return expected;
}

// acquire: the caller sees everything that the writer of the byte wrote before the byte.
// AtomicRef takes no const object; the cast is safe because the byte is only read.
uint8_t Look(const uint8_t* flag) {
  return AtomicRef<uint8_t>(*const_cast<uint8_t*>(flag)).load(std::memory_order_acquire);
}

}  // namespace

int32_t KivSdCmpXchgPtr(uint64_t expected, uint64_t newValue, uint64_t* target) {
  return Swap(target, expected, newValue) == expected ? 1 : 0;
}

int32_t KivSdCmpXchg2() { return 0; }

int64_t KivSdAtomicAdd(int32_t* target, int32_t addend) {
  const int32_t before = AtomicRef<int32_t>(*target).fetch_add(addend);
  FenceAfterLocked();
  return before;
}

int64_t KivSdAtomicIncrement(int32_t* target) { return KivSdAtomicAdd(target, 1); }

int64_t KivSdAtomicDecrement(int32_t* target) { return KivSdAtomicAdd(target, -1); }

uint64_t KivSdAtomicSet(uint64_t* word) { return Swap(word, 0, 1); }

uint64_t KivSdAtomicUnset(uint64_t* word) { return Swap(word, 1, 0); }

int32_t KivSdAtomicCompareAndSwap(uint64_t* word, int32_t expected, int32_t newValue) {
  const auto wide = static_cast<uint64_t>(static_cast<int64_t>(expected));
  return KivSdCmpXchgPtr(wide, static_cast<uint64_t>(static_cast<int64_t>(newValue)), word);
}

void KivSdMemoryBarrier() { FullFence(); }

// Compatibility: the two waits never yield and have no limit. Callers use them where the other
// thread is running and a yield would cost more than the wait.
uint8_t KivSdWaitUntilTrue(const uint8_t* flag) {
  uint8_t value = Look(flag);
  while (value == 0) {
    os::PauseProcessor();
    value = Look(flag);
  }
  FullFence();
  return value;
}

uint8_t KivSdWaitUntilFalse(const uint8_t* flag) {
  while (Look(flag) != 0) os::PauseProcessor();
  FullFence();
  return 0;
}
