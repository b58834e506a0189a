// Expectations about the results of the seam's primitives.
#ifndef KIV_TESTS_SUPPORT_LNX_OS_RESULTS_H
#define KIV_TESTS_SUPPORT_LNX_OS_RESULTS_H

#include <gtest/gtest.h>

#include <cstdint>

#include "os/os.h"

namespace kiv::test {

inline void ExpectFailed(const os::Result& result, uint32_t error) {
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.error, error);
}

template <typename Value>
void ExpectFailed(const os::ValueResult<Value>& result, uint32_t error) {
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.error, error);
}

inline void ExpectOk(const os::Result& result) {
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.error, 0u);
}

}  // namespace kiv::test

#endif
