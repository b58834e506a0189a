// Version and flavour of the loaded library.
#ifdef _WIN32
#include <windows.h>  // the layer's declarations must agree with the system's
#endif

#include "kivsdu/cpp/version.hpp"

#include <gtest/gtest.h>

#include "kivsdu/kivsdu.h"
#include "kivsdu_version.h"

namespace {

using kivsdu::ParseBuild;

TEST(LoadedLibrary, SaysItsVersionAndItsFlavour) {
  ASSERT_EQ(KivSdMemCopy(nullptr, nullptr, nullptr, 0), 0u);  // a call loads the library
  const auto build = kivsdu::LoadedLibrary();
  ASSERT_TRUE(build.has_value());
  EXPECT_EQ(build->version, kivsdu::kHeaderVersion);
  EXPECT_EQ(KIVSDU_VERSION_TEXT " " + std::string(build->flavour), KIVSDU_BUILD_TEXT);
}

TEST(LoadedLibrary, HasVersionsThatCompare) {
  constexpr kivsdu::Version kOld = {1, 9, 9};
  EXPECT_LT(kOld, (kivsdu::Version{2, 0, 0}));
  EXPECT_LT(kOld, (kivsdu::Version{1, 10, 0}));
  EXPECT_EQ(kOld, (kivsdu::Version{1, 9, 9}));
}

TEST(ParseBuild, TakesTheFlavoursWordsAsTheyAre) {
  const auto build = ParseBuild("12.0.345 ucrt checked");
  ASSERT_TRUE(build.has_value());
  EXPECT_EQ(build->version, (kivsdu::Version{12, 0, 345}));
  EXPECT_EQ(build->flavour, "ucrt checked");
}

TEST(ParseBuild, DropsTerminators) {
  const auto build = ParseBuild({"1.2.3 glibc\0\0", 13});
  ASSERT_TRUE(build.has_value());
  EXPECT_EQ(build->flavour, "glibc");
}

TEST(ParseBuild, RefusesOtherTexts) {
  for (const char* text : {"", "1", "1.2", "1.2.3", "1.2.3 ", "1.2.3-rc glibc", "a.b.c glibc",
                           "1..3 glibc", " 1.2.3 glibc", "1.2.99999999999 glibc"}) {
    EXPECT_FALSE(ParseBuild(text).has_value()) << text;
  }
}

}  // namespace
