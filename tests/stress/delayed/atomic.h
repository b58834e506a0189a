// Replaces the library's header of this name (sd/standard/atomic.h): the types are the same, with a
// chance of a delay before and after every access.
#ifndef KIV_TESTS_STRESS_DELAYED_ATOMIC_H
#define KIV_TESTS_STRESS_DELAYED_ATOMIC_H

#include <atomic>

#include "stress/delay.h"

namespace kiv {

// The standard type, limited to the operations that the locks use. Any other operation does not
// compile, so that no access is without delays.
template <typename Standard>
class Delayed : private Standard {
 public:
  using Value = typename Standard::value_type;
  static constexpr std::memory_order kDefault = std::memory_order_seq_cst;

  using Standard::Standard;
  Delayed() = default;

  Value load(std::memory_order order = kDefault) const {
    const stress::DelayAround delay;
    return Standard::load(order);
  }
  void store(Value value, std::memory_order order = kDefault) {
    const stress::DelayAround delay;
    Standard::store(value, order);
  }
  Value exchange(Value value, std::memory_order order = kDefault) {
    const stress::DelayAround delay;
    return Standard::exchange(value, order);
  }
  bool compare_exchange_strong(Value& expected, Value value, std::memory_order order = kDefault) {
    const stress::DelayAround delay;
    return Standard::compare_exchange_strong(expected, value, order);
  }
  bool compare_exchange_weak(Value& expected, Value value, std::memory_order order = kDefault) {
    const stress::DelayAround delay;
    return Standard::compare_exchange_weak(expected, value, order);
  }
  Value fetch_add(Value addend, std::memory_order order = kDefault) {
    const stress::DelayAround delay;
    return Standard::fetch_add(addend, order);
  }
  Value fetch_or(Value bits, std::memory_order order = kDefault) {
    const stress::DelayAround delay;
    return Standard::fetch_or(bits, order);
  }
  Value fetch_and(Value bits, std::memory_order order = kDefault) {
    const stress::DelayAround delay;
    return Standard::fetch_and(bits, order);
  }
};

template <typename T>
using Atomic = Delayed<std::atomic<T>>;

template <typename T>
using AtomicRef = Delayed<std::atomic_ref<T>>;

}  // namespace kiv

#endif
