// The error numbers that a failing call leaves behind.
#ifndef KIV_TESTS_LAST_ERROR_H
#define KIV_TESTS_LAST_ERROR_H

#include <cstdint>

namespace kiv::test {

// Sets errno and the last error of the calling thread. Natively the last error is the tests' own:
// the stand-ins for the system's imports (lnx/seam_import.h) pass it to the library.
void SetErrors(int errnoValue, uint32_t lastError);

}  // namespace kiv::test

#endif
