// The lock of all records of the checks. The library's own locks do not serve, because they are
// checked themselves. Nobody allocates, waits or reports while holding it.
#ifndef KIV_CHECKED_GATE_H
#define KIV_CHECKED_GATE_H

#include <atomic>
#include <cstdint>

#include "os/thread.h"

namespace kiv::checked {

class Gate {
 public:
  Gate() {
    while (!TryEnter()) os::YieldThread();
  }

  // For the unloading library: gives up after some attempts. When a process ends, the system may
  // have stopped another thread that holds the gate.
  explicit Gate(uint32_t attempts) {
    for (; attempts != 0 && !entered_; --attempts) {
      entered_ = TryEnter();
      if (!entered_) os::YieldThread();
    }
  }

  ~Gate() {
    // release: pairs with the acquire in TryEnter.
    if (entered_) closed_.store(false, std::memory_order_release);
  }

  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  bool entered() const { return entered_; }

 private:
  bool TryEnter() {
    entered_ = !closed_.exchange(true, std::memory_order_acquire);
    return entered_;
  }

  static std::atomic<bool> closed_;
  bool entered_ = false;
};

}  // namespace kiv::checked

#endif
