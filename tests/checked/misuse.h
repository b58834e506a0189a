// Expectations of a report of the checked flavour.
#ifndef KIV_TESTS_CHECKED_MISUSE_H
#define KIV_TESTS_CHECKED_MISUSE_H

#include <string>
#include <vector>

#include "support/process.h"

namespace kiv::test {

class ContainsAll : public testing::MatcherInterface<const std::string&> {
 public:
  explicit ContainsAll(std::vector<std::string> parts) : parts_(std::move(parts)) {}

  bool MatchAndExplain(const std::string& output, testing::MatchResultListener*) const override {
    for (const std::string& part : parts_) {
      if (output.find(part) == std::string::npos) return false;
    }
    return true;
  }
  void DescribeTo(std::ostream* out) const override {
    for (const std::string& part : parts_) *out << "contains \"" << part << "\" ";
  }

 private:
  std::vector<std::string> parts_;
};

inline testing::Matcher<const std::string&> Parts(std::vector<std::string> parts) {
  return testing::MakeMatcher(new ContainsAll(std::move(parts)));
}

}  // namespace kiv::test

// EXPECT_MISUSE(call, "text", ...) checks that the call ends the process by an assertion whose
// message has all these texts.
#define EXPECT_MISUSE(call, ...)                                      \
  EXPECT_EXIT(static_cast<void>(call), kiv::test::EndedByAssertion(), \
              kiv::test::Parts({__VA_ARGS__}))

// EXPECT_NO_MISUSE(call) checks in a new process that the call reports nothing.
#define EXPECT_NO_MISUSE(call)                                                                     \
  EXPECT_EXIT(kiv::test::RunAndExit([&] { static_cast<void>(call); }), testing::ExitedWithCode(0), \
              "")

#endif
