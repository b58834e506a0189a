// A variable that several threads read and write with relaxed memory order.
#ifndef KIV_MEMSYS_RELAXED_H
#define KIV_MEMSYS_RELAXED_H

#include <atomic>

namespace kiv {

// Each read and each write is atomic, but += and -= are not: they are a read and a write, so that
// an update may be lost. For variables that are written under a lock and read without it, and for
// counts that may lose updates. FetchAdd loses none, but is a locked instruction.
template <typename T>
class Relaxed {
 public:
  constexpr Relaxed() = default;
  constexpr Relaxed(T value) : value_(value) {}  // NOLINT(google-explicit-constructor)
  Relaxed(const Relaxed&) = delete;

  Relaxed& operator=(const Relaxed& other) { return *this = static_cast<T>(other); }

  Relaxed& operator=(T value) {
    value_.store(value, std::memory_order_relaxed);
    return *this;
  }

  operator T() const {  // NOLINT(google-explicit-constructor)
    return value_.load(std::memory_order_relaxed);
  }

  Relaxed& operator+=(T addend) { return *this = static_cast<T>(*this + addend); }
  // Returns the value before.
  T FetchAdd(T addend) { return value_.fetch_add(addend, std::memory_order_relaxed); }

  Relaxed& operator-=(T subtrahend) { return *this = static_cast<T>(*this - subtrahend); }

 private:
  std::atomic<T> value_{};
};

}  // namespace kiv

#endif
