// Counts what a process has open, to find leaks.
#ifndef KIV_TESTS_OPEN_HANDLES_H
#define KIV_TESTS_OPEN_HANDLES_H

#include <cstddef>

namespace kiv::test {

// On Windows the handles of the process among the first 8000. Natively the handles of the library
// and the descriptors of the process.
size_t OpenHandles();

}  // namespace kiv::test

#endif
