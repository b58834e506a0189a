// What the library asks of the memory manager: sizes, policies and source positions, in order, and
// what it makes of the answers.
//
// The linker sends the library's calls of the manager here. They are noted and passed on, unless a
// test has the next one answer otherwise.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "sdcommon/memory_stack.h"
#include "sdrwlock/node.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

struct Call {
  std::string function;
  uint64_t sizeBytes;
  void* block;
  uint32_t policy;
  std::string file;
  uint32_t line;

  bool operator==(const Call&) const = default;
};

void PrintTo(const Call& call, std::ostream* out) {
  *out << call.function << "(" << call.sizeBytes << ", " << call.block << ", " << call.policy
       << ", " << call.file << ":" << call.line << ")";
}

struct Answer {
  uint32_t status;
  void* block;
};

std::vector<Call> calls;
std::optional<Answer> answer;  // of a call, instead of the manager's own
uint32_t passFirst = 0;        // calls before that one
void* expectedOwner = nullptr;

void Note(const char* function, uint64_t sizeBytes, void* block, uint32_t policy, const char* file,
          uint32_t line) {
  calls.push_back({function, sizeBytes, block, policy, file, line});
}

// Gives the answer that a test prepared, if it did.
bool Answered(void** block, uint32_t* status) {
  if (!answer.has_value()) return false;
  if (passFirst > 0) {
    --passFirst;
    return false;
  }
  *status = answer->status;
  if (block != nullptr) *block = answer->block;
  answer.reset();
  return true;
}

}  // namespace

extern "C" {

uint32_t __real_adMalloc(void*, uint64_t, void**, const char*, uint32_t);
uint32_t __wrap_adMalloc(void*, uint64_t, void**, const char*, uint32_t);
uint32_t __real_adMallocPolicy(void*, uint64_t, void**, uint8_t, const char*, uint32_t);
uint32_t __wrap_adMallocPolicy(void*, uint64_t, void**, uint8_t, const char*, uint32_t);
uint32_t __real_adRealloc(void*, uint64_t, void*, void**, const char*, uint32_t);
uint32_t __wrap_adRealloc(void*, uint64_t, void*, void**, const char*, uint32_t);
uint32_t __real_adFree(void*, const char*, uint32_t);
uint32_t __wrap_adFree(void*, const char*, uint32_t);

uint32_t __wrap_adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file,
                         uint32_t line) {
  EXPECT_EQ(owner, expectedOwner);
  Note("adMalloc", sizeBytes, nullptr, 0, file, line);
  uint32_t status = 0;
  if (Answered(block, &status)) return status;
  return __real_adMalloc(owner, sizeBytes, block, file, line);
}

uint32_t __wrap_adMallocPolicy(void* owner, uint64_t sizeBytes, void** block, uint8_t policy,
                               const char* file, uint32_t line) {
  EXPECT_EQ(owner, expectedOwner);
  Note("adMallocPolicy", sizeBytes, nullptr, policy, file, line);
  uint32_t status = 0;
  if (Answered(block, &status)) return status;
  return __real_adMallocPolicy(owner, sizeBytes, block, policy, file, line);
}

uint32_t __wrap_adRealloc(void* owner, uint64_t sizeBytes, void* oldBlock, void** newBlock,
                          const char* file, uint32_t line) {
  EXPECT_EQ(owner, expectedOwner);
  Note("adRealloc", sizeBytes, oldBlock, 0, file, line);
  uint32_t status = 0;
  if (Answered(newBlock, &status)) return status;
  return __real_adRealloc(owner, sizeBytes, oldBlock, newBlock, file, line);
}

uint32_t __wrap_adFree(void* block, const char* file, uint32_t line) {
  Note("adFree", 0, block, 0, file, line);
  uint32_t status = 0;
  if (Answered(nullptr, &status)) return status;
  return __real_adFree(block, file, line);
}

}  // extern "C"

namespace {

constexpr uint32_t kOtherStatus = 1130212;
constexpr char kFile[] = "host/source";

class ManagerCalls : public testing::Test {
 protected:
  ManagerCalls() {
    calls.clear();
    answer.reset();
    passFirst = 0;
    expectedOwner = nullptr;
  }

  // The calls since the last look are these.
  static void ExpectCalls(const std::vector<Call>& expected) {
    EXPECT_EQ(calls, expected);
    calls.clear();
  }

  Context ctx_;
};

TEST_F(ManagerCalls, OfTheFrontCarryTheCallersSourcePosition) {
  void* block = nullptr;
  CHECK_OK(ctx_, KivSdMemAlloc(ctx_, 77, 100, &block, kFile, 11));
  ExpectCalls({{"adMalloc", 100, nullptr, 0, kFile, 11}});
  CHECK_OK(ctx_, KivSdMemFree(ctx_, block, kFile, 12));
  ExpectCalls({{"adFree", 0, block, 0, kFile, 12}});
  for (const uint8_t policy : {uint8_t{AD_POLICY_MANDATORY}, uint8_t{AD_POLICY_FULL}}) {
    CHECK_OK(ctx_, KivSdMemAllocUsingPolicy(ctx_, 77, 200, &block, policy, kFile, 13));
    ExpectCalls({{"adMallocPolicy", 200, nullptr, policy, kFile, 13}});
    CHECK_OK(ctx_, KivSdMemFree(ctx_, block, kFile, 14));
    calls.clear();
  }
  CHECK_OK(ctx_, KivSdMemRealloc(ctx_, 300, nullptr, &block, kFile, 15));
  ExpectCalls({{"adMalloc", 300, nullptr, 0, kFile, 15}});
  CHECK_OK(ctx_, KivSdMemFree(ctx_, block, kFile, 16));
}

TEST_F(ManagerCalls, OfAReallocationCarryTheFrontsOwnSourcePosition) {
  void* block = nullptr;
  ASSERT_EQ(KivSdMemAlloc(nullptr, 0, 100, &block, kFile, 1), KIV_ST_OK);
  calls.clear();
  void* const old = block;
  CHECK_OK(ctx_, KivSdMemRealloc(ctx_, 500, block, &block, kFile, 2));
  ExpectCalls({{"adRealloc", 500, old, 0, "sd/sdmemw32", 540}});
  EXPECT_EQ(KivSdMemFree(nullptr, block, kFile, 3), KIV_ST_OK);
}

TEST_F(ManagerCalls, AreNotMadeForBadArguments) {
  void* block = &block;
  CHECK_ARGUMENT(ctx_, KivSdMemAlloc(ctx_, 0, 0, &block, kFile, 1));
  CHECK_ARGUMENT(ctx_, KivSdMemAlloc(ctx_, 0, 1, nullptr, kFile, 1));
  CHECK_ARGUMENT(ctx_, KivSdMemAllocUsingPolicy(ctx_, 0, 0, &block, 2, kFile, 1));
  CHECK_ARGUMENT(ctx_, KivSdMemAllocUsingPolicy(ctx_, 0, 1, nullptr, 2, kFile, 1));
  CHECK_ARGUMENT(ctx_, KivSdMemRealloc(ctx_, 0, block, &block, kFile, 1));
  CHECK_ARGUMENT(ctx_, KivSdMemRealloc(ctx_, 1, block, nullptr, kFile, 1));
  CHECK_ARGUMENT(ctx_, KivSdMemFree(ctx_, nullptr, kFile, 1));
  CHECK_ARGUMENT(ctx_, KivSdExtAllocMemFree(ctx_, nullptr));
  ExpectCalls({});
}

TEST_F(ManagerCalls, ThatYieldABlockKeepTheirStatusWhateverItIs) {
  char place = 0;
  void* block = nullptr;
  answer = {kOtherStatus, &place};
  CHECK_OUTCOME(ctx_, KivSdMemAlloc(ctx_, 0, 8, &block, kFile, 1), kOtherStatus, 0u);
  EXPECT_EQ(block, &place);
  block = nullptr;
  answer = {kOtherStatus, &place};
  CHECK_OUTCOME(ctx_, KivSdMemRealloc(ctx_, 8, &place, &block, kFile, 1), kOtherStatus, 0u);
  EXPECT_EQ(block, &place);
}

TEST_F(ManagerCalls, ThatYieldNoBlockAreOutOfMemoryWhateverTheirStatus) {
  for (const uint32_t status : {KIV_ST_OK, kOtherStatus}) {
    void* block = &block;
    answer = {status, nullptr};
    EXPECT_EQ(KivSdMemAlloc(ctx_, 0, 8, &block, kFile, 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(ctx_.status(), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
    block = &block;
    answer = {status, nullptr};
    EXPECT_EQ(KivSdMemRealloc(ctx_, 8, &block, &block, kFile, 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, &block);
  }
}

TEST_F(ManagerCalls, ThatFreeAreIgnoredWhenTheyFail) {
  char place = 0;
  answer = {kOtherStatus, nullptr};
  CHECK_OK(ctx_, KivSdMemFree(ctx_, &place, kFile, 1));
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdTerm(reinterpret_cast<KivSdContext*>(&place)), KIV_ST_OK);
}

TEST_F(ManagerCalls, OfTheContextRecordAreMarked) {
  KivSdContext* record = nullptr;
  ASSERT_EQ(KivSdInit(&record), KIV_ST_OK);
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].sizeBytes, sizeof(KivSdContext));
  EXPECT_EQ(calls[0].file, "sd/sdctxw32");
  ASSERT_EQ(KivSdTerm(record), KIV_ST_OK);
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[1].file, "sd/sdctxw32");
}

TEST_F(ManagerCalls, OfTheContextRecordPassAFailureOnAndDistrustASuccessWithoutABlock) {
  KivSdContext* record = nullptr;
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdInit(&record), kOtherStatus);
  answer = {KIV_ST_OK, nullptr};
  EXPECT_EQ(KivSdInit(&record), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(record, nullptr);
}

TEST_F(ManagerCalls, OfThePerThreadSlotAreForOneKeyCell) {
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdVorUtilTlsInit(), kOtherStatus);
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, nullptr);
  ExpectCalls({{"adMalloc", 4, nullptr, 0, "sd/sdvorutil", 90}});
  ASSERT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  ExpectCalls({{"adMalloc", 4, nullptr, 0, "sd/sdvorutil", 90}});
  void* const cell = KivSdVorUtilGlobals()->tlsKey;
  KivSdVorUtilTlsTerm();
  ExpectCalls({{"adFree", 0, cell, 0, "sd/sdvorutil", 123}});
}

TEST_F(ManagerCalls, OfAMemoryStackHaveTheMandatoryPolicyAndALineEach) {
  const char* const source = "sd/sdcommon";
  uint32_t page = 0;
  ASSERT_EQ(KivSdPageSizeGet(nullptr, &page), KIV_ST_OK);
  KivSdMemStack* stack = nullptr;
  CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &stack, 8, 1000));
  ExpectCalls({{"adMallocPolicy", 56, nullptr, AD_POLICY_MANDATORY, source, 846},
               {"adMallocPolicy", page - 128, nullptr, AD_POLICY_MANDATORY, source, 882}});

  void* pieces[3] = {};
  for (void*& piece : pieces) {
    CHECK_OK(ctx_, KivSdMemStackAllocAndPush(ctx_, stack, page - 200, &piece));
  }
  ExpectCalls({{"adMallocPolicy", page - 128, nullptr, AD_POLICY_MANDATORY, source, 1001},
               {"adMallocPolicy", page - 128, nullptr, AD_POLICY_MANDATORY, source, 1001}});

  void* const top = stack->top;
  CHECK_OK(ctx_, KivSdMemStackPopAndFree(ctx_, stack, pieces[0]));
  ExpectCalls({{"adFree", 0, top, 0, source, 1107}});

  void* const freeBlock = stack->freeList;
  void* const used = stack->top;
  CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, stack));
  ExpectCalls({{"adFree", 0, stack, 0, source, 1158},
               {"adFree", 0, freeBlock, 0, source, 1168},
               {"adFree", 0, used, 0, source, 1181}});
}

TEST_F(ManagerCalls, OfAMemoryStackThatFailPassTheFrontsStatusOn) {
  KivSdMemStack* stack = nullptr;
  answer = {kOtherStatus, nullptr};
  CHECK_OUTCOME(ctx_, KivSdMemStackCreate(ctx_, &stack, 8, 1000), KIV_ST_OUT_OF_MEMORY, 0u);
  EXPECT_EQ(stack, nullptr);
  CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &stack, 8, 1000));
  const KivSdMemStack before = *stack;
  void* piece = &piece;
  answer = {kOtherStatus, nullptr};
  CHECK_OUTCOME(ctx_, KivSdMemStackAllocAndPush(ctx_, stack, 100000, &piece), KIV_ST_OUT_OF_MEMORY,
                0u);
  EXPECT_EQ(piece, &piece);
  EXPECT_EQ(stack->top, before.top);
  EXPECT_EQ(stack->freeList, before.freeList);
  EXPECT_EQ(stack->topOffset, before.topOffset);
  CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, stack));
}

TEST_F(ManagerCalls, OfASpinlockAreForItsRecord) {
  KivSyncEnvInit();
  ExpectCalls({});
  expectedOwner = nullptr;  // though the caller names a context
  KivSdSpinlock* lock = KivSdSpinlockCreate(ctx_, 6001);
  ASSERT_NE(lock, nullptr);
  ExpectCalls({{"adMalloc", 256, nullptr, 0, "sd/sdsync", 617}});
  KivSdSpinlockDestroy(ctx_, lock);
  ExpectCalls({{"adFree", 0, lock, 0, "sd/sdsync", 661}});
  KivSdSpinlockDestroy(ctx_, nullptr);
  ExpectCalls({});
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdSpinlockCreate(ctx_, 6001), nullptr);
}

// ---- The reader-writer lock ----

constexpr char kLockSource[] = "sd/sdrwlock";
const Call kNodeCall = {"adMalloc", sizeof(KivRWLockNode), nullptr, 0, kLockSource, 341};
const Call kActiveCall = {"adMalloc", 7 * sizeof(void*), nullptr, 0, kLockSource, 389};
const Call kFreeCall = {"adMalloc", 7 * sizeof(void*), nullptr, 0, kLockSource, 460};

class LockCalls : public ManagerCalls {
 protected:
  LockCalls() {
    EXPECT_EQ(KivRWLockInit(nullptr, 0, &lock_, 1, 2), KIV_ST_OK);
    expectedOwner = &owner_;
  }
  ~LockCalls() override { EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK); }

  uint32_t StartRead() { return KivSdStartRead(&owner_, &table_, &lock_); }
  uint32_t StartWrite() { return KivSdStartWrite(&owner_, &table_, &lock_); }
  uint32_t End() { return KivSdEndRW(&owner_, &table_, &lock_); }

  void ExpectNothingHeld() {
    EXPECT_EQ(table_.active, nullptr);
    EXPECT_EQ(table_.free, nullptr);
    EXPECT_EQ(lock_.countAndFlags, 0u);
    EXPECT_EQ(lock_.readerTail, nullptr);
    EXPECT_EQ(lock_.writerTail, nullptr);
  }

  char owner_ = 0;
  KivRWLock lock_;
  KivRWLockTable table_{};
};

TEST_F(LockCalls, AreForANodeAndTheListsInTheCallersContextWhenFirstNeeded) {
  ASSERT_EQ(StartRead(), KIV_ST_OK);
  ExpectCalls({kNodeCall, kActiveCall});
  ASSERT_EQ(End(), KIV_ST_OK);
  ExpectCalls({kFreeCall});
  ASSERT_EQ(StartWrite(), KIV_ST_OK);
  ASSERT_EQ(End(), KIV_ST_OK);
  ExpectCalls({});
  KivRWLock another;
  ASSERT_EQ(KivRWLockInit(nullptr, 0, &another, 0, 2), KIV_ST_OK);
  ASSERT_EQ(KivSdStartWrite(&owner_, &table_, &another), KIV_ST_OK);
  ExpectCalls({kNodeCall});
  ASSERT_EQ(KivSdEndRW(&owner_, &table_, &another), KIV_ST_OK);
  ExpectCalls({});
}

TEST_F(LockCalls, AreForTheFreeingOfNodesAndListsBothActiveAndFree) {
  KivRWLock another;
  ASSERT_EQ(KivRWLockInit(nullptr, 0, &another, 0, 6), KIV_ST_OK);
  ASSERT_EQ(KivSdStartRead(&owner_, &table_, &another), KIV_ST_OK);
  ASSERT_EQ(StartRead(), KIV_ST_OK);
  ASSERT_EQ(End(), KIV_ST_OK);
  void* const active = table_.active;
  void* const activeNode = table_.active[6];
  void* const freeLists = table_.free;
  void* const freeNode = table_.free[2];
  ASSERT_NE(activeNode, nullptr);
  ASSERT_NE(freeNode, nullptr);
  calls.clear();
  EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  ExpectCalls({{"adFree", 0, activeNode, 0, kLockSource, 717},
               {"adFree", 0, active, 0, kLockSource, 749},
               {"adFree", 0, freeNode, 0, kLockSource, 717},
               {"adFree", 0, freeLists, 0, kLockSource, 774}});
  EXPECT_EQ(table_.active, nullptr);
  EXPECT_EQ(table_.free, nullptr);
  EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  ExpectCalls({});
}

TEST_F(LockCalls, ThatFailPassTheirStatusOnBeforeTheLockIsTouched) {
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(StartRead(), kOtherStatus);
  ExpectCalls({kNodeCall});
  ExpectNothingHeld();
  passFirst = 1;
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(StartWrite(), kOtherStatus);
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0], kNodeCall);
  EXPECT_EQ(calls[1], kActiveCall);
  EXPECT_EQ(calls[2].function, "adFree") << "of the node, which finds no place";
  EXPECT_EQ(calls[2].line, 717u);
  ExpectNothingHeld();
}

TEST_F(LockCalls, ThatFailWhenTheLockIsGivenBackPassTheirStatusOnAfterIt) {
  ASSERT_EQ(StartWrite(), KIV_ST_OK);
  calls.clear();
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(End(), kOtherStatus);
  ExpectCalls({kFreeCall});
  EXPECT_EQ(lock_.countAndFlags, 0u);
  EXPECT_EQ(KivSdOwnerRW(nullptr, &table_, &lock_), 0);
  EXPECT_EQ(End(), KIV_ST_MUTEX_CLEAR);
  ExpectCalls({});
}

}  // namespace
