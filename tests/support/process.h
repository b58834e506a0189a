// Checks that need their own process: switches that cannot be undone, and programming errors that
// end the process. Each check starts the test program again, which runs this one test up to the
// check. Write at most one check on a source line.
#ifndef KIV_TESTS_PROCESS_H
#define KIV_TESTS_PROCESS_H

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

namespace kiv::test {

// Runs a check in the child process. Prints its failures on standard error, which the parent shows.
// The exit code is 1 after a failure, else 0.
template <typename Check>
[[noreturn]] void RunAndExit(Check check) {
  check();
  const testing::TestResult& result =
      *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result.total_part_count(); ++i) {
    const testing::TestPartResult& part = result.GetTestPartResult(i);
    if (part.failed()) std::fprintf(stderr, "line %d: %s\n", part.line_number(), part.message());
  }
  std::fflush(stderr);
  // _Exit skips the leak check: some tests leave blocks behind on purpose.
  std::_Exit(result.Failed() ? 1 : 0);
}

// The message of the C runtime's assertion routine.
inline std::string AssertionText(const char* condition, const char* source, uint32_t line) {
  const std::string number = std::to_string(line);
#ifdef _WIN32
  return std::string("Assertion failed: ") + condition + ", file " + source + ", line " + number;
#else
  return std::string(source) + ":" + number + ": kivsdu: Assertion `" + condition + "' failed.";
#endif
}

inline auto EndedByAssertion() {
#ifdef _WIN32
  return testing::ExitedWithCode(3);
#else
  return testing::KilledBySignal(SIGABRT);
#endif
}

class ContainsText : public testing::MatcherInterface<const std::string&> {
 public:
  explicit ContainsText(std::string text) : text_(std::move(text)) {}

  bool MatchAndExplain(const std::string& output, testing::MatchResultListener*) const override {
    return output.find(text_) != std::string::npos;
  }
  void DescribeTo(std::ostream* out) const override { *out << "contains \"" << text_ << '"'; }

 private:
  std::string text_;
};

inline testing::Matcher<const std::string&> Contains(std::string text) {
  return testing::MakeMatcher(new ContainsText(std::move(text)));
}

}  // namespace kiv::test

// IN_FRESH_PROCESS([] { ... }) runs the checks in a new process, where nothing has been set yet.
#define IN_FRESH_PROCESS(...)                                                        \
  do {                                                                               \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                                  \
    EXPECT_EXIT(kiv::test::RunAndExit(__VA_ARGS__), testing::ExitedWithCode(0), ""); \
  } while (false)

// EXPECT_ASSERTION(call, "x != KIV_NULL", "sd/source", 12) checks that the call ends the process by
// the runtime's assertion with that condition, source and line.
#define EXPECT_ASSERTION(call, condition, source, line)                                  \
  do {                                                                                   \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                                      \
    EXPECT_EXIT(static_cast<void>(call), kiv::test::EndedByAssertion(),                  \
                kiv::test::Contains(kiv::test::AssertionText(condition, source, line))); \
  } while (false)

#endif
