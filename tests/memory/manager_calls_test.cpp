// The library's calls of the memory manager: their sizes, policies, source positions and order, and
// what the library does with the results.
//
// The linker redirects the library's calls of the manager to this file. It records them and passes
// them on, unless a test sets another result for the next call. Queries of the system are
// redirected, too, so that a page can have any size.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "memsys/plain.h"
#include "memsys/thread_heaps.h"
#include "sdcommon/memory_stack.h"
#include "sdrwlock/node.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/manager.h"

namespace {

using kiv::test::Context;
using kiv::test::ImportPatch;

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
std::optional<Answer> answer;  // result of a call, instead of the manager's
uint32_t passFirst = 0;        // calls to pass on before that one
void* expectedOwner = nullptr;

// Result of a query of the system, instead of the real one.
struct SystemAnswer {
  uint32_t status;
  uint32_t value;
};
std::optional<SystemAnswer> pageSize;
std::optional<SystemAnswer> mostBytes;

void Note(const char* function, uint64_t sizeBytes, void* block, uint32_t policy, const char* file,
          uint32_t line) {
  calls.push_back({function, sizeBytes, block, policy, file, line});
}

// Returns the result that a test has set, if any.
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

uint32_t __real_KivSdPageSizeGet(KivSdContext*, uint32_t*);
uint32_t __wrap_KivSdPageSizeGet(KivSdContext*, uint32_t*);
uint32_t __real_KivSdMaxAllocGet(KivSdContext*, uint64_t*);
uint32_t __wrap_KivSdMaxAllocGet(KivSdContext*, uint64_t*);

uint32_t __wrap_KivSdPageSizeGet(KivSdContext* ctx, uint32_t* sizeBytes) {
  if (!pageSize.has_value()) return __real_KivSdPageSizeGet(ctx, sizeBytes);
  *sizeBytes = pageSize->value;
  return pageSize->status;
}

uint32_t __wrap_KivSdMaxAllocGet(KivSdContext* ctx, uint64_t* sizeBytes) {
  if (!mostBytes.has_value()) return __real_KivSdMaxAllocGet(ctx, sizeBytes);
  *sizeBytes = mostBytes->value;
  return mostBytes->status;
}

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
    pageSize.reset();
    mostBytes.reset();
  }

  // Expects exactly these calls since the last check.
  static void ExpectCalls(const std::vector<Call>& expected) {
    EXPECT_EQ(calls, expected);
    calls.clear();
  }

  Context ctx_;
};

TEST_F(ManagerCalls, OfTheFrontPassTheCallersSourcePosition) {
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

TEST_F(ManagerCalls, OfAReallocationPassTheFrontsOwnSourcePosition) {
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

TEST_F(ManagerCalls, ThatReturnABlockKeepAnyStatus) {
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

TEST_F(ManagerCalls, ThatReturnNoBlockAreOutOfMemoryWithAnyStatus) {
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

TEST_F(ManagerCalls, ThatFailToFreeAreIgnored) {
  char place = 0;
  answer = {kOtherStatus, nullptr};
  CHECK_OK(ctx_, KivSdMemFree(ctx_, &place, kFile, 1));
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdTerm(reinterpret_cast<KivSdContext*>(&place)), KIV_ST_OK);
}

TEST_F(ManagerCalls, OfTheContextRecordPassItsSourcePosition) {
  KivSdContext* record = nullptr;
  ASSERT_EQ(KivSdInit(&record), KIV_ST_OK);
  ExpectCalls({{"adMalloc", sizeof(KivSdContext), nullptr, 0, "sd/sdctxw32", 52}});
  ASSERT_EQ(KivSdTerm(record), KIV_ST_OK);
  ExpectCalls({{"adFree", 0, record, 0, "sd/sdctxw32", 86}});
}

TEST_F(ManagerCalls, OfTheContextRecordFailWithTheirStatusOrWithoutABlock) {
  KivSdContext* record = nullptr;
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdInit(&record), kOtherStatus);
  answer = {KIV_ST_OK, nullptr};
  EXPECT_EQ(KivSdInit(&record), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(record, nullptr);
}

TEST_F(ManagerCalls, OfThePerThreadSlotAllocateOneKeyCell) {
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

TEST_F(ManagerCalls, OfAMemoryStackPassTheMandatoryPolicyAndTheirOwnLines) {
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

// A block and 128 bytes for the manager fill whole pages.
TEST_F(ManagerCalls, OfAMemoryStackFillPagesOfAnySize) {
  struct Case {
    uint32_t page;
    uint32_t first;  // first block, of an initial size of 1000
    uint32_t next;   // block for one byte more than the first has room for
  };
  for (const Case& sizes : {Case{8192, 8064, 16256}, Case{4096, 3968, 8064}, Case{1, 1000, 1001}}) {
    pageSize = {KIV_ST_OK, sizes.page};
    KivSdMemStack* stack = nullptr;
    CHECK_OK(ctx_, KivSdMemStackCreate(ctx_, &stack, 1, 1000));
    EXPECT_EQ(stack->pageBytes, sizes.page);
    EXPECT_EQ(stack->defaultBlockBytes, sizes.first);
    EXPECT_EQ(stack->freeList->sizeBytes, sizes.first);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].sizeBytes, sizes.first);
    calls.clear();
    void* piece = nullptr;
    CHECK_OK(ctx_, KivSdMemStackAllocAndPush(ctx_, stack, sizes.first - 16, &piece));
    ExpectCalls({});
    CHECK_OK(ctx_, KivSdMemStackAllocAndPush(ctx_, stack, sizes.first - 15, &piece));
    ExpectCalls(
        {{"adMallocPolicy", sizes.next, nullptr, AD_POLICY_MANDATORY, "sd/sdcommon", 1001}});
    CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, stack));
    calls.clear();
  }
}

TEST_F(ManagerCalls, OfAMemoryStackAreNotMadeForABlockWhenASystemQueryFails) {
  for (std::optional<SystemAnswer>* query : {&pageSize, &mostBytes}) {
    *query = {kOtherStatus, 4096};
    KivSdMemStack* stack = nullptr;
    CHECK_OUTCOME(ctx_, KivSdMemStackCreate(ctx_, &stack, 8, 1000), kOtherStatus, 0u);
    ASSERT_NE(stack, nullptr);
    ExpectCalls({{"adMallocPolicy", 56, nullptr, AD_POLICY_MANDATORY, "sd/sdcommon", 846}});
    CHECK_OK(ctx_, KivSdMemStackDelete(ctx_, stack));
    ExpectCalls({{"adFree", 0, stack, 0, "sd/sdcommon", 1158}});
    query->reset();
  }
}

TEST_F(ManagerCalls, OfAMemoryStackReturnTheFrontsStatusWhenTheyFail) {
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

TEST_F(ManagerCalls, OfASpinlockAllocateItsRecord) {
  KivSyncEnvInit();
  ExpectCalls({});
  expectedOwner = nullptr;  // although the caller passes a context
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

TEST_F(LockCalls, AllocateANodeAndTheListsWhenTheyAreFirstNeeded) {
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

TEST_F(LockCalls, FreeTheNodesAndListsBothActiveAndFree) {
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

TEST_F(LockCalls, ThatFailReturnTheirStatusBeforeTheLockIsTouched) {
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

TEST_F(LockCalls, ThatFailDuringAReleaseReturnTheirStatusAfterIt) {
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

// If a free frees nothing, as with the no-free switch on, ending the owner tries again.
TEST_F(ManagerCalls, OfAnOwnersEndAreRepeatedUntilItHasNoLargeBlocks) {
  ASSERT_EQ(kiv::test::Restart(kiv::test::kSmall), KIV_ST_OK);
  AdShortHeapOwner owner = {};
  adMemShortHeapInit(&owner);
  expectedOwner = &owner;
  void* block = nullptr;
  ASSERT_EQ(adMemShortHeapMalloc(&owner, 100'000, &block, kFile, 1), KIV_ST_OK);
  calls.clear();
  answer = {KIV_ST_OK, nullptr};
  adMemShortHeapTerm(&owner);
  ASSERT_EQ(calls.size(), 2u);
  for (const Call& call : calls) {
    EXPECT_EQ(call.function, "adFree");
    EXPECT_EQ(call.block, block);
  }
  EXPECT_EQ(owner.largeBlocks, nullptr);
  EXPECT_EQ(adMemThreadHeapTerm(), -1);
  EXPECT_EQ(adMemThreadHeapInit(0, nullptr, "tests", 0), KIV_ST_OK);
}

// The exported operations never pass null.
TEST_F(ManagerCalls, BetweenItsSourcesAcceptANullBlock) {
  void* block = kiv::PlainReallocate(nullptr, 100);
  EXPECT_NE(block, nullptr);
  kiv::PlainFree(block);
  ASSERT_EQ(kiv::test::Restart(kiv::test::kSmall), KIV_ST_OK);
  EXPECT_EQ(kiv::ThreadHeapFree(nullptr), KIV_ST_OK);
  block = kiv::ThreadHeapReallocate(1, nullptr, 100);
  EXPECT_NE(block, nullptr);
  EXPECT_EQ(kiv::ThreadHeapFree(block), KIV_ST_OK);
  EXPECT_EQ(adMemThreadHeapTerm(), -1);
  EXPECT_EQ(adMemThreadHeapInit(0, nullptr, "tests", 0), KIV_ST_OK);
}

// ---- Semaphores and named pipes of the system ----

#ifdef _WIN32
// The system gets the list in a record of the caller's: length, list, whether handles are inherited.
void* AccessListIn(void* attributes) { return static_cast<void**>(attributes)[1]; }
#else
void* AccessListIn(void* list) { return list; }
#endif

// Replaces the system's calls. Each succeeds, unless a test makes it fail, and keeps its arguments.
class FakeSystem {
 public:
  FakeSystem() {
    semaphoresLeft = UINT32_MAX;
    openSemaphores = 0;
    path = nullptr;
    accessList = nullptr;
  }

  static inline uint32_t semaphoresLeft;
  static inline int32_t openSemaphores;  // made and not closed
  static inline void* path;              // of the last named pipe
  static inline void* accessList;

 private:
  static void* AnyHandle() { return &openSemaphores; }

  static void* MakeSemaphore(void*, int32_t, int32_t, const char*) {
    if (semaphoresLeft == 0) return nullptr;
    --semaphoresLeft;
    ++openSemaphores;
    return AnyHandle();
  }
  static int32_t Close(void*) {
    --openSemaphores;
    return 1;
  }
  static void* MakePipe(void* name, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                        void* list) {
    path = name;
    accessList = AccessListIn(list);
    return AnyHandle();
  }
  static void* Keep(void* name) {
    path = name;
    return AnyHandle();
  }

  const ImportPatch patches_[5] = {{"CreateSemaphoreA", reinterpret_cast<void*>(&MakeSemaphore)},
                                   {"CloseHandle", reinterpret_cast<void*>(&Close)},
                                   {"CreateNamedPipeA", reinterpret_cast<void*>(&MakePipe)},
                                   {"CreateFileA", reinterpret_cast<void*>(&Keep)},
                                   {"WaitNamedPipeA", reinterpret_cast<void*>(&Keep)}};
};

class SystemCalls : public ManagerCalls {
 protected:
  FakeSystem system_;
};

// ---- Semaphore sets ----

constexpr char kSetSource[] = "sd/sdsemw32";
constexpr int32_t kCounts[] = {1, 1, 1};
const Call kSetCall = {"adMalloc", 16, nullptr, 0, kSetSource, 139};
const Call kMembersCall = {"adMalloc", 3 * sizeof(KivHandle), nullptr, 0, kSetSource, 143};

class SetCalls : public SystemCalls {
 protected:
  uint32_t Create(uint16_t count = 3) {
    return KivSdShSemSetCreate(ctx_, "name", count, 0, kCounts, kCounts, &set_);
  }

  KivSdShSemSet* set_ = nullptr;
};

TEST_F(SetCalls, AllocateTheRecordAndItsMembers) {
  ASSERT_EQ(Create(), KIV_ST_OK);
  ExpectCalls({kSetCall, kMembersCall});
  void* const members = set_->members;
  EXPECT_EQ(KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  ExpectCalls(
      {{"adFree", 0, members, 0, kSetSource, 188}, {"adFree", 0, set_, 0, kSetSource, 189}});
  EXPECT_EQ(FakeSystem::openSemaphores, 0);
}

TEST_F(SetCalls, OfAnEmptySetAllocateTheRecordAlone) {
  ASSERT_EQ(Create(0), KIV_ST_OK);
  ExpectCalls({kSetCall});
  EXPECT_EQ(KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  ExpectCalls({{"adFree", 0, set_, 0, kSetSource, 189}});
}

TEST_F(SetCalls, FreeTheRecordAndTheMembersWhenAMemberCannotBeMade) {
  FakeSystem::semaphoresLeft = 2;
  EXPECT_EQ(Create(), KIV_ST_SEM_CREATE);
  EXPECT_EQ(set_, nullptr);
  EXPECT_EQ(FakeSystem::openSemaphores, 0);
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[0], kSetCall);
  EXPECT_EQ(calls[1], kMembersCall);
  EXPECT_EQ(calls[2], (Call{"adFree", 0, calls[2].block, 0, kSetSource, 160}));
  EXPECT_EQ(calls[3], (Call{"adFree", 0, calls[3].block, 0, kSetSource, 161}));
}

TEST_F(SetCalls, FreeTheRecordWithoutMemoryForItsMembers) {
  passFirst = 1;
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(Create(), KIV_ST_OUT_OF_MEMORY);
  // The caller's variable still holds the address of the freed record.
  ExpectCalls({kSetCall, kMembersCall, {"adFree", 0, set_, 0, kSetSource, 169}});
}

TEST_F(SetCalls, OfTheRecordReturnTheFrontsStatus) {
  char place[16];
  answer = {kOtherStatus, place};
  EXPECT_EQ(Create(), kOtherStatus);
  ExpectCalls({kSetCall});
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(Create(), KIV_ST_OUT_OF_MEMORY);
  ExpectCalls({kSetCall});
}

// ---- Named pipes ----

constexpr char kPipeSource[] = "sd/sdipcw32";

Call PathCall(const char* path, uint32_t line) {
  return {"adMalloc", std::string(path).size() + 1, nullptr, 0, kPipeSource, line};
}

TEST_F(SystemCalls, OfANamedPipeAllocateItsPathAndItsAccessList) {
  KivHandle pipe = nullptr;
  CHECK_OK(ctx_, KivSdNamedPipeCreate(ctx_, "name", &pipe, 0, 0, 1, 0, 0, 0));
  ExpectCalls({PathCall("\\\\.\\PIPE\\name", 224),
               {"adMalloc", 40, nullptr, 0, kPipeSource, 239},
               {"adFree", 0, FakeSystem::accessList, 0, kPipeSource, 251},
               {"adFree", 0, FakeSystem::path, 0, kPipeSource, 252}});
}

TEST_F(SystemCalls, OfANamedPipesClientAllocateThePathInItsLength) {
  KivHandle pipe = nullptr;
  for (const char* server : {"local", "LOCAL", "machine"}) {
    const std::string machine = server[0] == 'm' ? server : ".";
    const std::string path = "\\\\" + machine + "\\PIPE\\name";
    CHECK_OK(ctx_, KivSdNamedPipeOpen(ctx_, server, "name", &pipe, 0, 0, 3, 0));
    void* block = FakeSystem::path;
    ExpectCalls({PathCall(path.c_str(), 310), {"adFree", 0, block, 0, kPipeSource, 341}});
    CHECK_OK(ctx_, KivSdNamedPipeWait(ctx_, server, "name", 0));
    block = FakeSystem::path;
    ExpectCalls({PathCall(path.c_str(), 388), {"adFree", 0, block, 0, kPipeSource, 412}});
  }
}

TEST_F(SystemCalls, OfANamedPipeReturnTheirStatusWhenTheyFail) {
  KivHandle pipe = nullptr;
  const Call path = PathCall("\\\\.\\PIPE\\name", 224);
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdNamedPipeCreate(ctx_, "name", &pipe, 0, 0, 1, 0, 0, 0), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(ctx_.status(), KIV_ST_OUT_OF_MEMORY);
  ExpectCalls({path});
  passFirst = 1;
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdNamedPipeCreate(ctx_, "name", &pipe, 0, 0, 1, 0, 0, 0), kOtherStatus);
  EXPECT_EQ(ctx_.status(), kOtherStatus);
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[1], (Call{"adMalloc", 40, nullptr, 0, kPipeSource, 239}));
  EXPECT_EQ(calls[2], (Call{"adFree", 0, calls[2].block, 0, kPipeSource, 252}));
  // What the free of the access list returns is the operation's status.
  calls.clear();
  passFirst = 2;
  answer = {kOtherStatus, nullptr};
  EXPECT_EQ(KivSdNamedPipeCreate(ctx_, "name", &pipe, 0, 0, 1, 0, 0, 0), kOtherStatus);
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(adFree(calls[2].block, kFile, 1), KIV_ST_OK);
}

}  // namespace
