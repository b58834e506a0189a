// In a build for coverage, a part of each program and of the shared library: stores what they have
// counted before a process ends without exit().
//
// The counters go to their file when a process returns from main. Processes that call _exit or abort,
// or that fail an assertion, would lose them. The linker sends these calls to the wrappers here.
#include "support/lnx/kept_counters.h"

extern "C" {
[[noreturn]] void __real__exit(int code);
[[noreturn]] void __real__Exit(int code);
[[noreturn]] void __real_abort();
[[noreturn]] void __real___assert_fail(const char* condition, const char* file, unsigned line,
                                       const char* function);

[[noreturn]] void __wrap__exit(int code);
[[noreturn]] void __wrap__Exit(int code);
[[noreturn]] void __wrap_abort();
[[noreturn]] void __wrap___assert_fail(const char* condition, const char* file, unsigned line,
                                       const char* function);
}

void __wrap__exit(int code) {
  kiv::test::StoreCounters();
  __real__exit(code);
}

void __wrap__Exit(int code) {
  kiv::test::StoreCounters();
  __real__Exit(code);
}

void __wrap_abort() {
  kiv::test::StoreCounters();
  __real_abort();
}

void __wrap___assert_fail(const char* condition, const char* file, unsigned line,
                          const char* function) {
  kiv::test::StoreCounters();
  __real___assert_fail(condition, file, line, function);
}
