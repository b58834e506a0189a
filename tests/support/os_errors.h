// The error numbers of the platform that tests expect in records or make calls fail with.
#ifndef KIV_TESTS_OS_ERRORS_H
#define KIV_TESTS_OS_ERRORS_H

#include <cerrno>
#include <cstdint>

namespace kiv::test {

#ifdef _WIN32
constexpr uint32_t kOsTooManyPosts = 298;
#else
constexpr uint32_t kOsTooManyPosts = EOVERFLOW;
#endif

}  // namespace kiv::test

#endif
