// The version in the public headers is the project's.
#include <gtest/gtest.h>

#include <string>

#include "kivsdu/kivsdu.h"
#include "kivsdu_version.h"

namespace {

TEST(Version, OfTheHeadersIsTheProjects) {
  EXPECT_STREQ(KIV_VERSION, KIVSDU_VERSION_TEXT);
  EXPECT_EQ(KIV_VERSION_MAJOR << 8 | KIV_VERSION_MINOR, KIVSDU_VERSION_WORD);
}

TEST(Version, IsWrittenAsThreeNumbers) {
  EXPECT_EQ(KIV_VERSION, std::to_string(KIV_VERSION_MAJOR) + "." +
                             std::to_string(KIV_VERSION_MINOR) + "." +
                             std::to_string(KIV_VERSION_PATCH));
}

}  // namespace
