// Initialising the NUMA resources reads one environment variable and ignores its value.
#include <gtest/gtest.h>

#include <string>

#include "kivsdu/kivsdu.h"
#include "support/import_patch.h"

namespace {

using kiv::test::ScriptedImport;

TEST(NumaEnvironment, IsReadOnceAndIgnored) {
  const char* const values[] = {nullptr, "", "1", "FALSE"};
  for (const char* value : values) {
    const ScriptedImport getenv("getenv", {.result = reinterpret_cast<uintptr_t>(value)});
    KivSdInitNumaResources();
    EXPECT_EQ(KivSdGetNumNumaNodes(), 0u);
    EXPECT_EQ(KivSdGetNumaNodeId(5), KIV_NUMA_NO_NODE);
    ASSERT_EQ(getenv.calls().size(), 1u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(getenv.calls()[0][0])), "AD_TURN_OFF_NUMA");
  }
}

}  // namespace
