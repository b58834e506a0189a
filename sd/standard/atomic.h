// The atomic types that the locks and the slots of thread heaps are made of: the standard's.
//
// They have names of their own, and a folder of their own on the include path, so that a test
// build can put others in their place: tests/stress/delayed/atomic.h waits a random time
// around every access.
#ifndef KIV_STANDARD_ATOMIC_H
#define KIV_STANDARD_ATOMIC_H

#include <atomic>

namespace kiv {

template <typename T>
using Atomic = std::atomic<T>;

// Atomic access to a variable that is declared as a plain one, in a record of a public header.
template <typename T>
using AtomicRef = std::atomic_ref<T>;

}  // namespace kiv

#endif
