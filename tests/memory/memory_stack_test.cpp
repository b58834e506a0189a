// Memory stacks: each rule of creating, pushing, popping, resetting and deleting.
#include "sdcommon/memory_stack.h"

#include <gtest/gtest.h>

#include <cstring>

#include "kivsdu/kivsdu.h"
#include "support/block_count.h"
#include "support/context.h"

namespace {

using kiv::StackBlock;
using kiv::test::BlockCount;
using kiv::test::Context;

constexpr uint32_t kHeader = 16;  // of every block, at alignments up to 16
void* const kUntouched = reinterpret_cast<void*>(0x5A5A);

unsigned char* Bytes(void* address) { return static_cast<unsigned char*>(address); }

uint32_t PageBytes() {
  uint32_t pageBytes = 0;
  EXPECT_EQ(KivSdPageSizeGet(nullptr, &pageBytes), KIV_ST_OK);
  return pageBytes;
}

// Returns the size of a block that fills this number of pages with the manager's overhead.
uint32_t BlockOf(uint32_t pages) { return pages * PageBytes() - 128; }

class Stack : public testing::Test {
 protected:
  ~Stack() override {
    if (stack_ != nullptr) Delete();
  }

  void Create(uint32_t alignment, uint32_t initialSizeBytes) {
    CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &stack_, alignment, initialSizeBytes));
    ASSERT_NE(stack_, nullptr);
  }

  void Delete() {
    CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, stack_));
    stack_ = nullptr;
  }

  unsigned char* Push(uint32_t sizeBytes) {
    void* piece = nullptr;
    CHECK_OK(ctx_, KivSdMemStackAllocAndPush(ctx_, stack_, sizeBytes, &piece));
    return Bytes(piece);
  }

  // A push that fills a block of so many pages, header included, and so takes one of its own.
  unsigned char* PushBlock(uint32_t pages) {
    unsigned char* piece = Push(BlockOf(pages) - kHeader);
    EXPECT_EQ(piece, Bytes(stack_->top) + kHeader);
    EXPECT_EQ(stack_->top->sizeBytes, BlockOf(pages));
    return piece;
  }

  void Pop(const void* address) { CHECK_OK(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, address)); }

  void Reset() { CHECK_OK(ctx_, KivSdMemStackReset(ctx_, stack_)); }

  Context ctx_;
  KivSdMemStack* stack_ = nullptr;
};

// ---- Create and delete ----

TEST_F(Stack, RefusesAnAlignmentThatIsNotAPowerOfTwo) {
  for (const uint32_t alignment : {0u, 3u, 6u, 24u, 0xFFFFFFFFu, 0x80000001u}) {
    auto* out = static_cast<KivSdMemStack*>(kUntouched);
    CHECK_ARGUMENT(ctx_, KivSdMemStackCreate(ctx_, &out, alignment, 1000));
    EXPECT_EQ(out, kUntouched);
  }
}

TEST_F(Stack, CreateRefusesANullResult) {
  CHECK_ARGUMENT(ctx_, KivSdMemStackCreate(ctx_, nullptr, 8, 1000));
  EXPECT_EQ(KivSdMemStackCreate(nullptr, nullptr, 8, 1000), KIV_ST_ARGUMENT);
}

TEST_F(Stack, StartsEmptyWithOneFreeBlock) {
  Create(8, 1000);
  EXPECT_EQ(stack_->pageBytes, PageBytes());
  EXPECT_EQ(stack_->alignment, 8u);
  EXPECT_EQ(stack_->defaultBlockBytes, BlockOf(1));
  EXPECT_EQ(stack_->headerBytes, kHeader);
  EXPECT_EQ(stack_->topOffset, kHeader);
  EXPECT_EQ(stack_->top, nullptr);
  ASSERT_NE(stack_->freeList, nullptr);
  EXPECT_EQ(stack_->freeList->sizeBytes, BlockOf(1));
  EXPECT_EQ(stack_->freeList->next, nullptr);
  uint64_t maxAlloc = 0;
  EXPECT_EQ(KivSdMaxAllocGet(nullptr, &maxAlloc), KIV_ST_OK);
  EXPECT_EQ(stack_->maxAllocBytes, maxAlloc);
}

TEST_F(Stack, RoundsTheHeaderUpToTheAlignment) {
  const struct {
    uint32_t alignment;
    uint64_t headerBytes;
  } cases[] = {{1, 16}, {2, 16}, {16, 16}, {32, 32}, {4096, 4096}, {1u << 31, 1u << 31}};
  for (const auto& [alignment, headerBytes] : cases) {
    Create(alignment, 0);
    EXPECT_EQ(stack_->headerBytes, headerBytes);
    EXPECT_EQ(stack_->topOffset, headerBytes);
    Delete();
  }
}

TEST_F(Stack, SizesItsBlocksSoThatTheyFillPages) {
  const uint32_t page = PageBytes();
  const struct {
    uint32_t initialBytes;
    uint32_t blockBytes;
  } cases[] = {
      {0, page - 128},
      {1, page - 128},
      {page - 128, page - 128},
      {page - 127, 2 * page - 128},
      {2 * page, 3 * page - 128},
      {1000 * page - 128, 1000 * page - 128},
  };
  for (const auto& [initialBytes, blockBytes] : cases) {
    Create(8, initialBytes);
    EXPECT_EQ(stack_->defaultBlockBytes, blockBytes) << initialBytes;
    EXPECT_EQ(stack_->freeList->sizeBytes, blockBytes) << initialBytes;
    Delete();
  }
}

TEST_F(Stack, WorksWithoutARecord) {
  ASSERT_EQ(KivSdMemStackCreate(nullptr, &stack_, 8, 100), KIV_ST_OK);
  void* piece = nullptr;
  EXPECT_EQ(KivSdMemStackAllocAndPush(nullptr, stack_, 8, &piece), KIV_ST_OK);
  EXPECT_EQ(KivSdMemStackPopAndFree(nullptr, stack_, piece), KIV_ST_OK);
  EXPECT_EQ(KivSdMemStackReset(nullptr, stack_), KIV_ST_OK);
  EXPECT_EQ(KivSdMemStackDelete(nullptr, stack_), KIV_ST_OK);
  stack_ = nullptr;
}

TEST_F(Stack, OperationsRefuseANullStack) {
  void* piece = kUntouched;
  CHECK_ARGUMENT(ctx_, KivSdMemStackAllocAndPush(ctx_, nullptr, 8, &piece));
  CHECK_ARGUMENT(ctx_, KivSdMemStackPopAndFree(ctx_, nullptr, &piece));
  CHECK_ARGUMENT(ctx_, KivSdMemStackReset(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdMemStackDelete(ctx_, nullptr));
  EXPECT_EQ(piece, kUntouched);
}

TEST_F(Stack, DeleteFreesTheRecordAndEveryBlock) {
  const BlockCount count;
  Create(8, 1000);
  PushBlock(1);
  PushBlock(2);
  PushBlock(3);
  Reset();
  PushBlock(3);
  PushBlock(4);
  EXPECT_EQ(count.allocated(), 5u);
  EXPECT_EQ(count.freed(), 0u);
  Delete();
  EXPECT_EQ(count.freed(), 5u);
}

// ---- Push ----

TEST_F(Stack, PushRefusesANullResult) {
  Create(8, 1000);
  CHECK_ARGUMENT(ctx_, KivSdMemStackAllocAndPush(ctx_, stack_, 8, nullptr));
  EXPECT_EQ(stack_->top, nullptr);
}

TEST_F(Stack, AlignsPieces) {
  Create(32, 1000);
  unsigned char* first = Push(1);
  StackBlock* block = stack_->top;
  EXPECT_EQ(first, Bytes(block) + 32);
  EXPECT_EQ(Push(32), Bytes(block) + 64);
  EXPECT_EQ(Push(33), Bytes(block) + 96);
  EXPECT_EQ(Push(5), Bytes(block) + 160);
  EXPECT_EQ(stack_->topOffset, 192u);
}

TEST_F(Stack, LeavesNoGapsAtAlignmentOne) {
  Create(1, 1000);
  unsigned char* first = Push(3);
  EXPECT_EQ(first, Bytes(stack_->top) + 16);
  EXPECT_EQ(Push(5), first + 3);
  EXPECT_EQ(Push(1), first + 8);
}

TEST_F(Stack, AnEmptyPieceHasTheAddressOfTheNextPiece) {
  Create(8, 1000);
  unsigned char* empty = Push(0);
  EXPECT_EQ(empty, Bytes(stack_->top) + kHeader);
  EXPECT_EQ(Push(0), empty);
  EXPECT_EQ(Push(8), empty);
}

TEST_F(Stack, AnEmptyPieceAtTheEndOfAFullBlockCannotBePopped) {
  Create(8, 1000);
  unsigned char* full = PushBlock(1);
  StackBlock* block = stack_->top;
  unsigned char* end = Push(0);
  EXPECT_EQ(end, Bytes(block) + BlockOf(1));
  EXPECT_EQ(stack_->top, block);
  CHECK_ARGUMENT(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, end));
  EXPECT_NE(Push(1), end);
  Pop(full);
}

TEST_F(Stack, APieceThatJustFitsTheFirstBlockUsesIt) {
  Create(8, 1000);
  StackBlock* first = stack_->freeList;
  EXPECT_EQ(Push(BlockOf(1) - kHeader), Bytes(first) + kHeader);
  EXPECT_EQ(stack_->top, first);
  EXPECT_EQ(stack_->freeList, nullptr);
}

TEST_F(Stack, APieceOfOneByteMoreTakesItsOwnBlockAndLeavesTheFirstFree) {
  Create(8, 1000);
  StackBlock* first = stack_->freeList;
  unsigned char* piece = Push(BlockOf(1) - kHeader + 1);
  EXPECT_EQ(piece, Bytes(stack_->top) + kHeader);
  EXPECT_EQ(stack_->top->sizeBytes, BlockOf(2));
  EXPECT_EQ(stack_->freeList, first);
}

TEST_F(Stack, TakesTheNextBlockWhenTheTopBlockIsFull) {
  Create(1, 1000);
  Push(BlockOf(1) - kHeader - 1);
  StackBlock* first = stack_->top;
  Push(1);
  EXPECT_EQ(stack_->top, first);
  Push(1);
  EXPECT_NE(stack_->top, first);
  EXPECT_EQ(stack_->top->next, first);
  EXPECT_EQ(stack_->top->sizeBytes, BlockOf(1));
}

TEST_F(Stack, SkipsTheFirstBlockIfTheAlignmentIsLarger) {
  Create(65536, 100);
  StackBlock* first = stack_->freeList;
  EXPECT_EQ(first->sizeBytes, BlockOf(1));
  unsigned char* piece = Push(0);
  EXPECT_EQ(piece, Bytes(stack_->top) + 65536);
  EXPECT_GE(stack_->top->sizeBytes, 65536u);
  EXPECT_EQ(stack_->freeList, first);
}

TEST_F(Stack, RefusesABlockThatDoesNotFit32BitsAndStaysUnchanged) {
  Create(8, 1000);
  Push(100);
  const KivSdMemStack before = *stack_;
  for (const uint32_t sizeBytes : {UINT32_MAX, 0xFFFFFF80u - kHeader + 1}) {
    void* piece = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdMemStackAllocAndPush(ctx_, stack_, sizeBytes, &piece),
                  KIV_ST_OUT_OF_MEMORY, 0u);
    EXPECT_EQ(piece, kUntouched);
    EXPECT_EQ(std::memcmp(&before, stack_, sizeof before), 0);
  }
}

TEST_F(Stack, RefusesAFirstBlockThatDoesNotFit32BitsAndMustThenBeDeleted) {
  const BlockCount count;
  for (const uint32_t sizeBytes : {UINT32_MAX, 0xFFFFFF81u}) {
    CHECK_OUTCOME(ctx_, KivSdMemStackCreate(ctx_, &stack_, 8, sizeBytes), KIV_ST_OUT_OF_MEMORY, 0u);
    ASSERT_NE(stack_, nullptr);
    Delete();
  }
  EXPECT_EQ(count.allocated(), 2u);
  EXPECT_EQ(count.freed(), 2u);
}

// ---- Pop ----

TEST_F(Stack, HasNothingToPopWhileEmpty) {
  Create(8, 1000);
  CHECK_ARGUMENT(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, Bytes(stack_->freeList) + kHeader));
  CHECK_ARGUMENT(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, nullptr));
}

TEST_F(Stack, TheNextPieceHasTheAddressOfThePoppedPiece) {
  Create(8, 1000);
  Push(8);
  unsigned char* second = Push(100);
  Push(200);
  Pop(second);
  EXPECT_EQ(Push(4), second);
}

TEST_F(Stack, PoppingToTheFirstPieceOfTheTopBlockFreesNothing) {
  const BlockCount count;
  Create(8, 1000);
  unsigned char* first = Push(8);
  Push(100);
  Pop(first);
  EXPECT_EQ(count.freed(), 0u);
  EXPECT_EQ(stack_->topOffset, kHeader);
  EXPECT_EQ(stack_->top, reinterpret_cast<StackBlock*>(first - kHeader));
}

TEST_F(Stack, PopsToAnyAddressAfterTheHeaderAndBeforeTheEnd) {
  Create(8, 1000);
  Push(8);
  unsigned char* block = Bytes(stack_->top);
  for (const uint32_t offset : {kHeader, kHeader + 3, 1000u, BlockOf(1) - 1}) {
    Pop(block + offset);
    EXPECT_EQ(stack_->topOffset, offset);
  }
  for (unsigned char* address : {block, block + kHeader - 1, block + BlockOf(1), block - 1}) {
    CHECK_ARGUMENT(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, address));
    EXPECT_EQ(stack_->topOffset, BlockOf(1) - 1);
  }
  CHECK_ARGUMENT(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, nullptr));
}

TEST_F(Stack, PoppingKeepsTheBlockDirectlyAboveIfItHasTheDefaultSize) {
  Create(8, 1000);
  unsigned char* first = PushBlock(1);
  PushBlock(1);
  StackBlock* above = stack_->top;
  PushBlock(1);
  const BlockCount count;
  Pop(first);
  EXPECT_EQ(stack_->freeList, above);
  EXPECT_EQ(above->next, nullptr);
  EXPECT_EQ(count.freed(), 1u);
}

TEST_F(Stack, PoppingFreesTheBlockDirectlyAboveIfItHasAnotherSize) {
  Create(8, 1000);
  unsigned char* first = PushBlock(1);
  PushBlock(2);
  PushBlock(1);
  const BlockCount count;
  Pop(first);
  EXPECT_EQ(stack_->freeList, nullptr);
  EXPECT_EQ(count.freed(), 2u);
}

TEST_F(Stack, PoppingFreesTheBlockDirectlyAboveIfTheFreeListIsNotEmpty) {
  Create(8, 1000);
  for (int i = 0; i < 3; ++i) PushBlock(1);
  Reset();
  unsigned char* first = PushBlock(1);
  unsigned char* second = PushBlock(1);
  StackBlock* freeAlready = stack_->freeList;
  ASSERT_NE(freeAlready, nullptr);
  const BlockCount count;
  Pop(first);
  EXPECT_EQ(stack_->freeList, freeAlready);
  EXPECT_EQ(freeAlready->next, nullptr);
  EXPECT_EQ(count.freed(), 1u);
  CHECK_ARGUMENT(ctx_, KivSdMemStackPopAndFree(ctx_, stack_, second));
}

TEST_F(Stack, PoppingLeavesThePiecesBelowUnchanged) {
  Create(8, 1000);
  unsigned char* kept = Push(500);
  std::memset(kept, 0x77, 500);
  unsigned char* popped = Push(3000);
  PushBlock(2);
  Pop(popped);
  for (int i = 0; i < 500; ++i) ASSERT_EQ(kept[i], 0x77);
  EXPECT_EQ(Push(1), popped);
}

// ---- Reset ----

TEST_F(Stack, ResetWithNothingPushedDoesNotWriteTheRecord) {
  Create(8, 1000);
  ctx_.Spoil();
  EXPECT_EQ(KivSdMemStackReset(ctx_, stack_), KIV_ST_OK);
  EXPECT_TRUE(ctx_.IsUntouched());
  Push(8);
  Reset();
  ctx_.Spoil();
  EXPECT_EQ(KivSdMemStackReset(ctx_, stack_), KIV_ST_OK);
  EXPECT_TRUE(ctx_.IsUntouched());
}

TEST_F(Stack, ResetSortsTheFreeBlocksLargestFirstAndNewestFirst) {
  Create(8, 1000);
  StackBlock* blocks[5];
  const uint32_t pages[] = {1, 3, 2, 3, 1};
  for (int i = 0; i < 5; ++i) {
    PushBlock(pages[i]);
    blocks[i] = stack_->top;
  }
  const BlockCount count;
  Reset();
  EXPECT_EQ(stack_->top, nullptr);
  EXPECT_EQ(stack_->topOffset, kHeader);
  // Blocks move from the top down, so that the lower of two equal blocks is first afterwards.
  StackBlock* const expected[] = {blocks[1], blocks[3], blocks[2], blocks[0], blocks[4]};
  const StackBlock* block = stack_->freeList;
  for (StackBlock* const next : expected) {
    EXPECT_EQ(block, next);
    block = block->next;
  }
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(count.freed(), 0u);
}

TEST_F(Stack, APushAfterResetReusesOnlyTheLargestBlock) {
  Create(8, 1000);
  PushBlock(1);
  StackBlock* small = stack_->top;
  PushBlock(3);
  StackBlock* large = stack_->top;
  Reset();
  EXPECT_EQ(Push(1), Bytes(large) + kHeader);
  EXPECT_EQ(stack_->freeList, small);
  // The head of the free list is too small for this piece, and no other block is considered.
  PushBlock(4);
  EXPECT_EQ(stack_->top->next, large);
  EXPECT_EQ(stack_->freeList, small);
}

}  // namespace
