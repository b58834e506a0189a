// Stands in for a platform's folder in programs that follow how a lock waits (lock_waiting_test):
// a pause and a yield are told to the test instead.
#ifndef KIV_TESTS_LOCKS_TRACED_INLINE_THREAD_H
#define KIV_TESTS_LOCKS_TRACED_INLINE_THREAD_H

#include <cstdint>

namespace kiv::test {
void OnPause();
void OnYield();
}  // namespace kiv::test

namespace kiv::os {

inline uint32_t CurrentThreadId() { return 77; }

inline void YieldThread() { test::OnYield(); }

inline void PauseProcessor() { test::OnPause(); }

}  // namespace kiv::os

#endif
