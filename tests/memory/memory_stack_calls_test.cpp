// Memory stacks when a block cannot be freed, and with a small largest allocation. The linker
// redirects the library's own calls to this file.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "sdcommon/memory_stack.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

constexpr uint32_t kAlignment = 16;
constexpr uint32_t kRefused = KIV_ST_OUT_OF_MEMORY;
constexpr uint64_t kMostBytes = 100'000;

std::optional<uint32_t> refusedFree;  // number of the free that is refused, from 0
uint32_t frees = 0;
bool isSmallMachine = false;  // whose largest allocation is kMostBytes

// Refuses one free during its lifetime.
class RefusedFree {
 public:
  explicit RefusedFree(uint32_t number) {
    frees = 0;
    refusedFree = number;
  }
  ~RefusedFree() { refusedFree.reset(); }
  RefusedFree(const RefusedFree&) = delete;
  RefusedFree& operator=(const RefusedFree&) = delete;
};

class SmallMachine {
 public:
  SmallMachine() { isSmallMachine = true; }
  ~SmallMachine() { isSmallMachine = false; }
  SmallMachine(const SmallMachine&) = delete;
  SmallMachine& operator=(const SmallMachine&) = delete;
};

}  // namespace

extern "C" {

uint32_t __real_KivSdMemFree(KivSdContext*, void*, const char*, uint32_t);
uint32_t __wrap_KivSdMemFree(KivSdContext*, void*, const char*, uint32_t);
uint32_t __real_KivSdMaxAllocGet(KivSdContext*, uint64_t*);
uint32_t __wrap_KivSdMaxAllocGet(KivSdContext*, uint64_t*);

uint32_t __wrap_KivSdMemFree(KivSdContext* ctx, void* block, const char* file, uint32_t line) {
  if (frees++ == refusedFree) return kRefused;
  return __real_KivSdMemFree(ctx, block, file, line);
}

uint32_t __wrap_KivSdMaxAllocGet(KivSdContext* ctx, uint64_t* sizeBytes) {
  if (!isSmallMachine) return __real_KivSdMaxAllocGet(ctx, sizeBytes);
  *sizeBytes = kMostBytes;
  return KIV_ST_OK;
}

}  // extern "C"

namespace {

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
    const RefusedFree refused(0);
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
      const uint32_t number = 1 + static_cast<uint32_t>(freed);  // the record is freed first
      const RefusedFree refused(number);
      CHECK_OUTCOME(ctx_, KivSdMemStackDelete(ctx_, stack), kRefused, 0u);
      EXPECT_EQ(frees, number + 1) << "it was the last";
    }
    for (size_t i = freed; i < blocks.size(); ++i) {
      CHECK_OK(ctx_, KivSdMemFree(ctx_, blocks[i], "test", 1));
    }
  }
  {
    const RefusedFree refused(0);
    CHECK_OUTCOME(ctx_, KivSdMemStackDelete(ctx_, stack_), kRefused, 0u);
    EXPECT_EQ(frees, 1u) << "without the record, no block is freed";
  }
  Delete();
}

TEST_F(StackCalls, APieceIsAtMostAsLargeAsTheLargestAllocation) {
  const SmallMachine machine;
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
  const SmallMachine machine;
  KivSdMemStack* small = nullptr;
  CHECK_OUTCOME(ctx_, KivSdMemStackCreate(ctx_, &small, kAlignment, kMostBytes + 1),
                KIV_ST_ARGUMENT, 0u);
  ASSERT_NE(small, nullptr) << "the caller deletes it";
  CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, small));
  Delete();
}

}  // namespace
