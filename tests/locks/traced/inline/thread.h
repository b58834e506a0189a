// Replaces a platform's header in tests that trace how a lock waits (lock_waiting_test): pauses and
// yields call the test instead.
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
