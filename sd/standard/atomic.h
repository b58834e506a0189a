// The atomic types of the locks and of the thread heap slots: those of the standard library.
//
// They have their own names, and this header has its own folder on the include path, so that a test
// build can replace them: tests/stress/delayed/atomic.h adds a random delay around every access.
#ifndef KIV_STANDARD_ATOMIC_H
#define KIV_STANDARD_ATOMIC_H

#include <atomic>

namespace kiv {

template <typename T>
using Atomic = std::atomic<T>;

// Atomic access to a variable that a public header declares as a plain one.
template <typename T>
using AtomicRef = std::atomic_ref<T>;

}  // namespace kiv

#endif
