// The test's own process.
#ifndef KIV_TESTS_OWN_PROCESS_H
#define KIV_TESTS_OWN_PROCESS_H

#include <cstdint>

namespace kiv::test {

uint32_t OwnProcessId();

// Ends the process with the exit code when the time has passed, whatever its threads do. Call it
// once at most.
void EndOwnProcessAfter(uint32_t delayMs, uint32_t exitCode);

}  // namespace kiv::test

#endif
