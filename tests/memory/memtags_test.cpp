// Block lists, tags and mappings.
#include "kivsdu/memtags.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

// A block list of two records.
AdAllocBlock records[2];

class BlockList : public testing::Test {
 protected:
  BlockList() {
    records[0] = {&information_, 0xFFFFFFFF, 100, "source", 17, 0xFFFFFFFF};
    records[1] = {nullptr, 0, 0xFFFFFFFF, nullptr, 0xFFFFFFFF, 0};
  }

  int information_ = 0;
};

TEST_F(BlockList, IsAlwaysEmpty) {
  EXPECT_EQ(adMemMgrGetAllocBlkHd(), nullptr);
  EXPECT_EQ(adMemMgrGetMemInfoHd(), nullptr);
}

TEST_F(BlockList, TheNextRecordFollowsDirectly) {
  EXPECT_EQ(adMemMgrGetAllocBlkNxt(&records[0]), &records[1]);
  const AdAllocBlock alone = {};
  const auto* address = reinterpret_cast<const char*>(&alone);
  EXPECT_EQ(reinterpret_cast<const char*>(adMemMgrGetAllocBlkNxt(&alone)), address + 32);
  EXPECT_EQ(adMemMgrGetAllocBlkNxt(nullptr), nullptr);
}

TEST_F(BlockList, ReturnsTheFieldsOfARecord) {
  EXPECT_STREQ(adMemMgrGetAllocBlkFN(&records[0]), "source");
  EXPECT_EQ(adMemMgrGetAllocBlkLn(&records[0]), 17u);
  EXPECT_EQ(adMemMgrGetAllocBlkSz(&records[0]), 100u);
  EXPECT_EQ(adMemMgrGetAllocBlkMI(&records[0]), &information_);
  EXPECT_EQ(adMemMgrGetAllocBlkFN(&records[1]), nullptr);
  EXPECT_EQ(adMemMgrGetAllocBlkLn(&records[1]), 0xFFFFFFFFu);
  EXPECT_EQ(adMemMgrGetAllocBlkSz(&records[1]), 0xFFFFFFFFu);
  EXPECT_EQ(adMemMgrGetAllocBlkMI(&records[1]), nullptr);
}

TEST_F(BlockList, ReturnsNeutralValuesForNull) {
  EXPECT_STREQ(adMemMgrGetAllocBlkFN(nullptr), "Null Pointer");
  EXPECT_EQ(adMemMgrGetAllocBlkLn(nullptr), 0u);
  EXPECT_EQ(adMemMgrGetAllocBlkSz(nullptr), 0u);
  EXPECT_EQ(adMemMgrGetAllocBlkMI(nullptr), nullptr);
}

TEST(MemoryTags, AreAlwaysReportedAsIntact) {
  EXPECT_EQ(adCheckMemTag(nullptr, 0), 1);
  EXPECT_EQ(adCheckMemTag(records, UINT64_MAX), 1);
  EXPECT_EQ(adCheckMemoryMarker(nullptr, 0), 1);
  EXPECT_EQ(adCheckMemoryMarker(records, UINT64_MAX), 1);
}

TEST(MemoryTags, ChangeNothing) {
  AdAllocBlock block = {};
  const AdAllocBlock before = block;
  adMemInfo(&block, UINT64_MAX);
  adSetMemTag(&block, UINT64_MAX);
  adMemInfo(nullptr, 0);
  adSetMemTag(nullptr, 0);
  EXPECT_EQ(std::memcmp(&block, &before, sizeof block), 0);
}

TEST(MemoryMappings, ReturnZeroAndChangeNoArgument) {
  uint64_t words[4];
  std::memset(words, 0xEE, sizeof words);
  EXPECT_EQ(adMmap(words, words + 1, words + 2, words + 3), 0u);
  EXPECT_EQ(adMremap(words, words + 1, words + 2, words + 3), 0u);
  EXPECT_EQ(adMunmap(words, words + 1), 0u);
  EXPECT_EQ(adMmap(nullptr), 0u);
  EXPECT_EQ(adMremap(nullptr), 0u);
  EXPECT_EQ(adMunmap(nullptr), 0u);
  for (const uint64_t word : words) EXPECT_EQ(word, UINT64_C(0xEEEEEEEEEEEEEEEE));
}

TEST(SharedEntries, TagsShareOneFunctionAndMappingsShareOne) {
  // Read through volatile: the compiler assumes that functions with different names differ.
  void* volatile entries[] = {reinterpret_cast<void*>(&adCheckMemTag),
                              reinterpret_cast<void*>(&adCheckMemoryMarker),
                              reinterpret_cast<void*>(&adMmap), reinterpret_cast<void*>(&adMremap),
                              reinterpret_cast<void*>(&adMunmap)};
  EXPECT_EQ(entries[0], entries[1]);
  EXPECT_EQ(entries[2], entries[3]);
  EXPECT_EQ(entries[2], entries[4]);
  EXPECT_NE(entries[0], entries[2]);
}

}  // namespace
