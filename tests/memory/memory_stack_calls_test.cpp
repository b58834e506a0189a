// Memory stacks when a block cannot be freed, and with a small largest allocation. The test answers
// the library's own calls.
#include <gtest/gtest.h>

#include <vector>

#include "kivsdu/kivsdu.h"
#include "sdcommon/memory_stack.h"
#include "support/context.h"
#include "support/lnx/answered_calls.h"

namespace {

using kiv::test::Answer;
using kiv::test::AnsweredCall;
using kiv::test::Answering;
using kiv::test::Context;
using kiv::test::Give;
using kiv::test::Word;
using kiv::test::Words;

constexpr uint32_t kAlignment = 16;
constexpr uint32_t kRefused = KIV_ST_OUT_OF_MEMORY;
constexpr uint64_t kMostBytes = 100'000;

// The largest allocation of a small machine.
Answering Most() {
  return [](const Words& arguments, Word* word) {
    *reinterpret_cast<uint64_t*>(arguments[1]) = kMostBytes;
    *word = KIV_ST_OK;
    return Answer::kGive;
  };
}

class StackCalls : public testing::Test {
 protected:
  StackCalls() { CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &stack_, kAlignment, 1)); }

  void* Push(uint32_t sizeBytes) {
    void* piece = nullptr;
    CHECK_OK(ctx_, KivSdMemStackAllocAndPush(ctx_, stack_, sizeBytes, &piece));
    return piece;
  }

  void Delete() { CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, stack_)); }

  Context ctx_;
  KivSdMemStack* stack_ = nullptr;
};

TEST_F(StackCalls, APopThatCannotFreeABlockKeepsIt) {
  const void* first = Push(1);
  Push(stack_->defaultBlockBytes * 2);
  const kiv::StackBlock* top = stack_->top;
  {
    const AnsweredCall refused("KivSdMemFree", Give(Word{kRefused}));
    CHECK_OUTCOME(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, first), kRefused, 0u);
  }
  EXPECT_EQ(stack_->top, top);
  CHECK_OK(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, first));
  EXPECT_NE(stack_->top, top);
  Delete();
}

// The blocks of a stack in the order in which they are freed: free ones first, then used ones.
std::vector<kiv::StackBlock*> BlocksOf(const KivSdMemStack& stack) {
  std::vector<kiv::StackBlock*> blocks;
  for (kiv::StackBlock* first : {stack.freeList, stack.top}) {
    for (; first != nullptr; first = first->next) blocks.push_back(first);
  }
  return blocks;
}

TEST_F(StackCalls, ADeleteEndsWithTheFirstBlockThatCannotBeFreed) {
  for (const size_t freed : {0u, 1u}) {
    KivSdMemStack* stack = nullptr;
    CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &stack, kAlignment, 1));
    void* piece = nullptr;
    CHECK_OK(ctx_, KivSdMemStackAllocAndPush(ctx_, stack, stack->defaultBlockBytes * 2, &piece));
    const std::vector<kiv::StackBlock*> blocks = BlocksOf(*stack);
    ASSERT_EQ(blocks.size(), 2u) << "one is free, one is used";
    {
      const uint32_t passed = 1 + static_cast<uint32_t>(freed);  // the record is freed first
      const AnsweredCall refused("KivSdMemFree", Give(Word{kRefused}, passed));
      CHECK_OUTCOME(ctx_, KivSdMemStackDelete(ctx_, stack), kRefused, 0u);
      EXPECT_EQ(refused.answered(), 1u);
    }
    for (size_t i = freed; i < blocks.size(); ++i) {
      CHECK_OK(ctx_, KivSdMemFree(ctx_, blocks[i], "test", 1));
    }
  }
  {
    const AnsweredCall refused("KivSdMemFree", Give(Word{kRefused}));
    CHECK_OUTCOME(ctx_, KivSdMemStackDelete(ctx_, stack_), kRefused, 0u);
    EXPECT_EQ(refused.answered(), 1u) << "without the record, no block is freed";
  }
  Delete();
}

TEST_F(StackCalls, APieceIsAtMostAsLargeAsTheLargestAllocation) {
  const AnsweredCall most("KivSdMaxAllocGet", Most());
  KivSdMemStack* small = nullptr;
  CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &small, kAlignment, 1));
  const auto largest = static_cast<uint32_t>(kMostBytes - small->headerBytes);
  void* piece = nullptr;
  CHECK_OUTCOME(ctx_, KivSdMemStackAllocAndPush(ctx_, small, largest + 1, &piece), KIV_ST_ARGUMENT,
                0u);
  EXPECT_EQ(piece, nullptr);
  CHECK_OK(ctx_, KivSdMemStackAllocAndPush(ctx_, small, largest, &piece));
  CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, small));
  Delete();
}

TEST_F(StackCalls, AFirstBlockIsAtMostAsLargeAsTheLargestAllocation) {
  const AnsweredCall most("KivSdMaxAllocGet", Most());
  KivSdMemStack* small = nullptr;
  CHECK_OUTCOME(ctx_, KivSdMemStackCreate(ctx_, &small, kAlignment, kMostBytes + 1),
                KIV_ST_ARGUMENT, 0u);
  ASSERT_NE(small, nullptr) << "the caller deletes it";
  CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, small));
  Delete();
}

}  // namespace
