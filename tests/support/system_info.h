// What the system knows about threads and processes, asked past the library.
#ifndef KIV_TESTS_SYSTEM_INFO_H
#define KIV_TESTS_SYSTEM_INFO_H

#include <cstdint>

namespace kiv::test {

uint32_t OwnThreadId();

// The exit code of a thread that has ended.
uint32_t ExitCodeOf(void* thread);

// 0 if there is no such process.
uint32_t PriorityClassOf(void* process);

}  // namespace kiv::test

#endif
