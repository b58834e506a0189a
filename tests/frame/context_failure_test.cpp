// KivSdInit when the C runtime has no memory.
#include <gtest/gtest.h>

#include "kivsdu/kivsdu.h"
#include "support/import_patch.h"

namespace {

using kiv::test::ScriptedImport;

TEST(ContextFailure, NoRecordIsReturnedWithoutMemory) {
  KivSdContext old = {};
  KivSdContext* ctx = &old;
  const ScriptedImport malloc("malloc", {.result = 0, .error = 8});
  EXPECT_EQ(KivSdInit(&ctx), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(ctx, nullptr);
  ASSERT_EQ(malloc.calls().size(), 1u);
  EXPECT_EQ(malloc.calls()[0][0], sizeof(KivSdContext));
}

}  // namespace
