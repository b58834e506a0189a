// Checks of the soak test. The first one that fails prints what broke, where and with which seed,
// and ends the process with kBroken.
#ifndef KIV_TESTS_SOAK_CHECK_H
#define KIV_TESTS_SOAK_CHECK_H

#include <cstdint>
#include <string>

namespace kiv::soak {

constexpr int kBroken = 3;  // exit code

// Describes this process in a failure's message, such as "process 2, seed 7".
void DescribeProcess(const std::string& text);

// Names what the calling thread does next. The text must stay valid until the next call.
void Now(const char* subsystem);

// `invariant` says what must hold, such as "a second writer never enters".
void Expect(bool holds, const char* invariant);
[[noreturn]] void Break(const std::string& invariant);

// Expects the status 0.
void Done(uint32_t status, const char* operation);

// Expects one of two statuses. Returns whether it is 0.
bool DoneOr(uint32_t status, uint32_t other, const char* operation);

}  // namespace kiv::soak

#endif
