// The resource queries when one of the queries that they consist of fails, which the system never
// makes them do. The linker redirects the library's own calls to this file.
#include <gtest/gtest.h>

#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

constexpr uint32_t kRefused = 1131099;  // a status that no query returns by itself

enum class Query { kNone, kTime, kMemory, kPaging };
Query refused = Query::kNone;

}  // namespace

extern "C" {

uint32_t __real_KivSdTime(KivSdContext*, uint64_t*);
uint32_t __wrap_KivSdTime(KivSdContext*, uint64_t*);
uint32_t __real_KivSdPhysMemInfoGet(KivSdContext*, KivSdPhysMemInfo*);
uint32_t __wrap_KivSdPhysMemInfoGet(KivSdContext*, KivSdPhysMemInfo*);
uint32_t __real_KivSdSwapInfoGet(KivSdContext*, KivSdSwapInfo*);
uint32_t __wrap_KivSdSwapInfoGet(KivSdContext*, KivSdSwapInfo*);

uint32_t __wrap_KivSdTime(KivSdContext* ctx, uint64_t* seconds) {
  return refused == Query::kTime ? kRefused : __real_KivSdTime(ctx, seconds);
}

uint32_t __wrap_KivSdPhysMemInfoGet(KivSdContext* ctx, KivSdPhysMemInfo* info) {
  return refused == Query::kMemory ? kRefused : __real_KivSdPhysMemInfoGet(ctx, info);
}

uint32_t __wrap_KivSdSwapInfoGet(KivSdContext* ctx, KivSdSwapInfo* info) {
  return refused == Query::kPaging ? kRefused : __real_KivSdSwapInfoGet(ctx, info);
}

}  // extern "C"

namespace {

class ResourceQueries : public testing::Test {
 protected:
  ~ResourceQueries() override { refused = Query::kNone; }

  Context ctx_;
};

TEST_F(ResourceQueries, EndWithTheFirstQueryThatFails) {
  uint64_t sizeBytes = 0;
  CHECK_OK(ctx_, KivSdOSResourcesSizeGet(ctx_, &sizeBytes));
  std::vector<uint64_t> buffer(sizeBytes / sizeof(uint64_t) + 1);
  auto* resources = reinterpret_cast<KivSdOSResources*>(buffer.data());
  const auto size = static_cast<uint32_t>(sizeBytes);
  for (const Query query : {Query::kTime, Query::kMemory, Query::kPaging}) {
    refused = query;
    EXPECT_EQ(KivSdOSResourcesGet(ctx_, size, resources), kRefused);
    EXPECT_EQ(resources->os.name[0] == '\0', query == Query::kTime) << "filled until the failure";
    EXPECT_EQ(resources->drive[0].ordinal, 0u) << "the drives come last";
  }
  refused = Query::kNone;
  CHECK_OK(ctx_, KivSdOSResourcesGet(ctx_, size, resources));
}

TEST_F(ResourceQueries, TellNoAvailableMemoryIfOneOfItsPartsIsUnknown) {
  for (const Query query : {Query::kMemory, Query::kPaging}) {
    refused = query;
    uint64_t sizeKiB = 4711;
    EXPECT_EQ(KivSdAvailVirtMemGet(ctx_, &sizeKiB), kRefused);
    EXPECT_EQ(sizeKiB, 4711u);
  }
}

}  // namespace
