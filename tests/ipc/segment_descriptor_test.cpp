// Descriptors of shared memory segments: finding them, setting them up and tearing them down, and
// the system resources that each step takes and releases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/block_count.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/memory_region.h"
#include "support/os_errors.h"
#include "support/segment.h"
#include "support/waiting.h"

namespace {

using kiv::test::BlockCount;
using kiv::test::Context;
using kiv::test::HasArea;
using kiv::test::HasMember;
using kiv::test::kOsNameOfOtherKind;
using kiv::test::kWritablePages;
using kiv::test::kWritableView;
using kiv::test::PageAccess;
using kiv::test::RegionOf;
using kiv::test::SegmentEnd;
using kiv::test::UniqueName;
using kiv::test::UnmapView;

constexpr uintptr_t kNotMapped = 0xDEADBEEF;
constexpr uint32_t kStamp1 = 0xA1A1A1A1;
constexpr uint32_t kStamp2 = 0xB2B2B2B2;
constexpr uint8_t kUnwritten = 0x5A;

KivSharedMemSeg* Unwritten() { return reinterpret_cast<KivSharedMemSeg*>(uintptr_t{0x5A5A5A50}); }

// A mutex of this name, so that nothing else can have the name.
class TakenName {
 public:
  explicit TakenName(const std::string& name) {
    EXPECT_EQ(KivSdMutexCreate(nullptr, name.c_str(), &mutex_), KIV_ST_OK);
  }
  ~TakenName() { EXPECT_EQ(KivSdMutexClose(nullptr, &mutex_), KIV_ST_OK); }
  TakenName(const TakenName&) = delete;
  TakenName& operator=(const TakenName&) = delete;

 private:
  KivHandle mutex_ = nullptr;
};

// A list of descriptors, deleted when the test ends.
class SegmentDescriptor : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(KivDeleteSharedMemSeg(nullptr, list_), KIV_ST_OK); }

  // Returns the descriptor found or made, and sets fresh_ and notMapped_.
  KivSharedMemSeg* Find(const std::string& name, uint32_t kind = 1, bool create = true,
                        uint32_t stamp1 = kStamp1, uint32_t stamp2 = kStamp2) {
    KivSharedMemSeg* segment = Unwritten();
    fresh_ = notMapped_ = kUnwritten;
    EXPECT_EQ(KivFindShareMemSeg(ctx_, name.c_str(), kind, &list_, create ? 0x80 : 0, stamp1,
                                 stamp2, &fresh_, &notMapped_, &segment),
              KIV_ST_OK);
    return segment;
  }

  uint32_t Create(KivSharedMemSeg* segment, const std::string& name, uint32_t kind = 1) {
    view_ = Unwritten();
    id_ = 0;
    return KivCreateSharedMemSeg(ctx_, name.c_str(), kind, kWritableView, kWritablePages, segment,
                                 4711, &id_, &view_);
  }

  // Finds, sets up and maps a segment.
  KivSharedMemSeg* Make(const std::string& name, uint32_t kind = 1) {
    KivSharedMemSeg* segment = Find(name, kind);
    EXPECT_EQ(fresh_, 1);
    EXPECT_EQ(Create(segment, name, kind), KIV_ST_OK);
    EXPECT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
    return segment;
  }

  Context ctx_;
  KivSharedMemSeg* list_ = nullptr;
  uint8_t fresh_ = 0;
  uint8_t notMapped_ = 0;
  uint32_t id_ = 0;
  void* view_ = nullptr;
};

// ---- Finding ----

TEST_F(SegmentDescriptor, IsMadeZeroedExceptForItsStampsAndItsViewAddress) {
  KivSharedMemSeg* segment = Find("nameless");
  ASSERT_NE(segment, nullptr);
  EXPECT_EQ(fresh_, 1);
  EXPECT_EQ(notMapped_, 0);
  EXPECT_EQ(list_, segment);
  KivSharedMemSeg expected;
  std::memset(&expected, 0, sizeof expected);
  expected.buffer = reinterpret_cast<void*>(kNotMapped);
  expected.ownerStamp1 = kStamp1;
  expected.ownerStamp2 = kStamp2;
  EXPECT_EQ(std::memcmp(segment, &expected, sizeof expected), 0);
}

TEST_F(SegmentDescriptor, IsMadeOnlyWithTheCreateFlag) {
  EXPECT_EQ(Find("missing", 1, false), nullptr);
  EXPECT_EQ(fresh_, 0);
  EXPECT_EQ(notMapped_, 0);
  EXPECT_EQ(list_, nullptr);
  KivSharedMemSeg* first = Find("first");
  EXPECT_EQ(Find("missing", 1, false), nullptr);
  EXPECT_EQ(Find("", 0, false), first) << "it has no name yet";
  EXPECT_EQ(Find("", 1, false), nullptr);
  EXPECT_EQ(first->next, nullptr);
}

TEST_F(SegmentDescriptor, GoesToTheEndOfTheList) {
  KivSharedMemSeg* first = Find("first");
  KivSharedMemSeg* second = Find("second");
  KivSharedMemSeg* third = Find("third");
  EXPECT_EQ(list_, first);
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(second->next, third);
  EXPECT_EQ(third->next, nullptr);
}

TEST_F(SegmentDescriptor, HasNoNameBeforeItIsSetUp) {
  KivSharedMemSeg* first = Find("name");
  EXPECT_NE(Find("name"), first);
  EXPECT_EQ(fresh_, 1);
}

TEST_F(SegmentDescriptor, IsFoundOnlyByItsWholeName) {
  const std::string name = UniqueName("Find");
  KivSharedMemSeg* first = Make(name);
  KivSharedMemSeg* second = Make(name + "2");
  EXPECT_EQ(Find(name), first);
  EXPECT_EQ(fresh_, 0);
  EXPECT_EQ(notMapped_, 0);
  EXPECT_EQ(Find(name + "2"), second);
  std::string lower = name;
  lower[0] = 'f';
  for (const std::string& other : {lower, name + "3", name.substr(0, name.size() - 1)}) {
    EXPECT_EQ(Find(other, 1, false), nullptr) << other;
  }
}

TEST_F(SegmentDescriptor, IsFoundByTheLastCharactersOfALongName) {
  std::string longest = UniqueName("long");
  longest.resize(255, 'n');
  KivSharedMemSeg* first = Make(longest + "1", 0);
  KivSharedMemSeg* second = Make(longest + "2", 0);
  EXPECT_EQ(Find(longest + "1", 0, false), first);
  EXPECT_EQ(Find(longest + "2", 0, false), second);
  EXPECT_EQ(Find(longest + "3", 0, false), nullptr);
  EXPECT_EQ(Find(longest, 0, false), nullptr);
  static_cast<char*>(first->buffer)[0] = 'f';
  EXPECT_EQ(static_cast<char*>(second->buffer)[0], 0) << "the areas differ";
  for (const char* last : {"1", "2"}) EXPECT_TRUE(HasMember(longest + last, 20)) << last;

  // The system refuses semaphores with a name of this length, but the descriptor stores the name.
  KivSharedMemSeg* third = Find("third", 0);
  std::string refused = UniqueName("refused");
  refused.resize(258, 'r');
  EXPECT_EQ(Create(third, refused + "1", 0), KIV_ST_SEM_CREATE);
  EXPECT_EQ(Find(refused + "1", 0, false), third);
  EXPECT_EQ(Find(refused + "2", 0, false), nullptr);
}

TEST_F(SegmentDescriptor, OfTheOtherKindIsNotFoundAndNoneIsMade) {
  const std::string name = UniqueName("kind");
  KivSharedMemSeg* segment = Make(name, 0);
  EXPECT_EQ(Find(name, 1), nullptr);
  EXPECT_EQ(fresh_, 0);
  EXPECT_EQ(notMapped_, 0);
  EXPECT_EQ(segment->next, nullptr);
  EXPECT_EQ(Find(name, 0), segment);
}

TEST_F(SegmentDescriptor, WithoutAViewIsReportedBeforeTheOwnerIsCompared) {
  const std::string name = UniqueName("unmapped");
  KivSharedMemSeg* segment = Find(name);
  ASSERT_EQ(Create(segment, name), KIV_ST_OK);
  EXPECT_EQ(Find(name, 1, true, 1, 2), segment);
  EXPECT_EQ(notMapped_, 1);
  EXPECT_EQ(fresh_, 0);
  EXPECT_TRUE(HasArea(name));
  EXPECT_EQ(segment->ownerStamp1, kStamp1);
  ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
}

TEST_F(SegmentDescriptor, WithoutAViewIsRenewedIfTheCallerPassesNoViewFlag) {
  const std::string name = UniqueName("unasked");
  KivSharedMemSeg* segment = Make(name);
  // Unmaps the view itself, so that it does not stay mapped.
  UnmapView(view_);
  segment->buffer = reinterpret_cast<void*>(kNotMapped);
  KivSharedMemSeg* found = nullptr;
  EXPECT_EQ(KivFindShareMemSeg(ctx_, name.c_str(), 1, &list_, 0, 1, 2, &fresh_, nullptr, &found),
            KIV_ST_OK);
  EXPECT_EQ(found, segment);
  EXPECT_EQ(fresh_, 1);
  EXPECT_FALSE(HasArea(name)) << "the handle must be closed although unmapping fails";
  ASSERT_EQ(Create(segment, name), KIV_ST_OK);
  ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
}

TEST_F(SegmentDescriptor, OfAnEarlierOwnerIsClosedAndFreshAgain) {
  const struct { uint32_t stamp1, stamp2; } owners[] = {{kStamp1, 7}, {8, 7}, {9, 10}};
  const std::string name = UniqueName("owner");
  KivSharedMemSeg* segment = Make(name);
  for (const auto& [stamp1, stamp2] : owners) {
    EXPECT_EQ(Find(name, 1, false, segment->ownerStamp1, segment->ownerStamp2), segment);
    EXPECT_EQ(fresh_, 0);
    const KivSdShSemSet* set = segment->semaphores;
    EXPECT_EQ(Find(name, 1, false, stamp1, stamp2), segment);
    EXPECT_EQ(fresh_, 1);
    EXPECT_EQ(notMapped_, 0);
    EXPECT_FALSE(HasMember(name, 0));
    EXPECT_FALSE(HasArea(name));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(segment->buffer), kNotMapped);
    EXPECT_EQ(segment->mapping, nullptr);
    EXPECT_EQ(segment->ownerStamp1, stamp1);
    EXPECT_EQ(segment->ownerStamp2, stamp2);
    EXPECT_EQ(segment->semaphores, set) << "the reference to the closed set must stay";
    EXPECT_EQ(std::string(segment->name), name);
    ASSERT_EQ(Create(segment, name), KIV_ST_OK);
    ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
  }
}

TEST_F(SegmentDescriptor, OfAnEarlierOwnerMayHaveNothingToClose) {
  const std::string name = UniqueName("closed");
  KivSharedMemSeg* segment = Make(name);
  ASSERT_EQ(KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_OK);
  EXPECT_EQ(Find(name, 1, true, 1, 2), segment);
  EXPECT_EQ(fresh_, 1);
}

// The reference to the set is stale: the set has been freed.
TEST_F(SegmentDescriptor, OfAnEarlierOwnerIsClosedOnceEvenIfItIsFoundAndDeletedAgain) {
  const std::string name = UniqueName("stale");
  KivSharedMemSeg* segment = Make(name);
  const BlockCount blocks;
  for (const uint32_t stamp : {1u, 2u, 3u}) {
    KivSharedMemSeg* found = nullptr;
    EXPECT_EQ(
        KivFindShareMemSeg(ctx_, name.c_str(), 1, &list_, 0, stamp, 2, &fresh_, nullptr, &found),
        KIV_ST_OK);
    EXPECT_EQ(found, segment);
    EXPECT_EQ(fresh_, 1);
    EXPECT_NE(segment->semaphores, nullptr);
  }
  EXPECT_EQ(blocks.freed(), 2u) << "the set and its members";
  CHECK_SILENT(ctx_, Create(segment, std::string(260, 'n')), KIV_ST_SEGMENT_NAME);
  CHECK_SILENT(ctx_, KivDeleteSharedMemSeg(ctx_, list_), KIV_ST_OK);
  list_ = nullptr;
  EXPECT_EQ(blocks.freed(), 3u) << "the set, its members and the descriptor";
}

TEST_F(SegmentDescriptor, OfAnEarlierOwnerIsClosedOnceEvenIfItIsClosedAlone) {
  const std::string name = UniqueName("stale-single");
  KivSharedMemSeg* segment = Make(name);
  EXPECT_EQ(Find(name, 1, false, 1, 2), segment);
  EXPECT_NE(segment->semaphores, nullptr);
  const BlockCount blocks;
  CHECK_SILENT(ctx_, KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_OK);
  EXPECT_EQ(blocks.freed(), 0u);
  EXPECT_EQ(segment->semaphores, nullptr);
}

TEST_F(SegmentDescriptor, OfKindZeroBelongsToEveryOwner) {
  const std::string name = UniqueName("any-owner");
  KivSharedMemSeg* segment = Make(name, 0);
  EXPECT_EQ(Find(name, 0, true, 1, 2), segment);
  EXPECT_EQ(fresh_, 0);
  EXPECT_TRUE(HasArea(name));
  EXPECT_EQ(segment->ownerStamp1, kStamp1);
}

TEST_F(SegmentDescriptor, IsTheFirstOfTheListForAnEmptyNameThatNoDescriptorHas) {
  const std::string name = UniqueName("first");
  KivSharedMemSeg* first = Make(name);
  KivSharedMemSeg* second = Make(name + "2");
  EXPECT_EQ(Find(""), first);
  EXPECT_EQ(fresh_, 1);
  EXPECT_EQ(notMapped_, 0);
  EXPECT_EQ(second->next, nullptr);
  EXPECT_EQ(Find("", 0), first) << "the kind does not matter";
  EXPECT_EQ(Find("", 1, false), nullptr);
  EXPECT_EQ(fresh_, 0);
}

TEST_F(SegmentDescriptor, IsMadeForAnEmptyNameInAnEmptyList) {
  EXPECT_EQ(Find(""), list_);
  EXPECT_NE(list_, nullptr);
  EXPECT_EQ(fresh_, 1);
}

TEST_F(SegmentDescriptor, IsFoundByAnEmptyNameAfterItsViewIsRemoved) {
  const std::string name = UniqueName("a-long-name");
  KivSharedMemSeg* segment = Make(name, 0);
  KivSharedMemSeg* second = Make(name + "2", 0);
  UnmapView(segment->buffer);
  CHECK_SILENT(ctx_, KivSetSharedMemSegBuffer(ctx_, segment, nullptr), KIV_ST_OK);
  EXPECT_EQ(segment->buffer, nullptr);
  EXPECT_EQ(std::string(segment->name, 8), std::string(8, '\0'));
  EXPECT_EQ(std::string(segment->name + 8), name.substr(8)) << "eight bytes are cleared";
  EXPECT_EQ(Find(name, 0, false), nullptr);
  EXPECT_EQ(Find("", 0, false), segment);
  EXPECT_EQ(fresh_, 0);
  EXPECT_EQ(segment->next, second);
}

TEST_F(SegmentDescriptor, IsFoundWithNullFlagOutputs) {
  const std::string name = UniqueName("flags");
  KivSharedMemSeg* found = Unwritten();
  EXPECT_EQ(KivFindShareMemSeg(nullptr, name.c_str(), 1, &list_, 1, kStamp1, kStamp2, nullptr,
                               nullptr, &found),
            KIV_ST_OK);
  EXPECT_EQ(found, list_);
  ASSERT_EQ(Create(found, name), KIV_ST_OK);
  ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, found, view_), KIV_ST_OK);
  for (const uint32_t stamp : {kStamp1, 1u}) {
    found = Unwritten();
    EXPECT_EQ(KivFindShareMemSeg(nullptr, name.c_str(), 1, &list_, 1, stamp, kStamp2, nullptr,
                                 nullptr, &found),
              KIV_ST_OK);
    EXPECT_EQ(found, list_);
  }
  EXPECT_EQ(found->mapping, nullptr);
  uint8_t notMapped = 0;
  EXPECT_EQ(KivFindShareMemSeg(nullptr, name.c_str(), 1, &list_, 1, 1, kStamp2, nullptr, &notMapped,
                               &found),
            KIV_ST_OK);
  EXPECT_EQ(notMapped, 1);
}

// ---- Setting up ----

TEST_F(SegmentDescriptor, IsFilledWhenTheSegmentIsSetUp) {
  for (const uint32_t kind : {1u, 0u}) {
    const std::string name = UniqueName("fill");
    KivSharedMemSeg* segment = Find(name, kind);
    KivSharedMemSeg* next = segment->next;
    std::memset(segment->name, 'n', sizeof segment->name);
    std::memset(segment->reading, 0xEE, sizeof segment->reading + sizeof segment->writing);
    segment->takenMask = 0xEEEEEEEE;
    CHECK_OK(ctx_, Create(segment, name, kind));
    EXPECT_EQ(std::string(segment->name), name);
    EXPECT_EQ(segment->halfBytes, 2048u);
    EXPECT_EQ(segment->chunkCount, 5u);
    EXPECT_EQ(segment->kind, kind);
    EXPECT_EQ(segment->takenMask, 0u);
    EXPECT_EQ(segment->timeoutMs, 4711u);
    ASSERT_NE(segment->semaphores, nullptr);
    EXPECT_EQ(segment->semaphores->count, 21u);
    EXPECT_NE(segment->mapping, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(segment->buffer), kNotMapped);
    EXPECT_EQ(segment->next, next);
    EXPECT_EQ(segment->ownerStamp1, kStamp1);
    const auto* states = reinterpret_cast<const unsigned char*>(segment->reading);
    EXPECT_TRUE(std::all_of(states, states + sizeof segment->reading + sizeof segment->writing,
                            [](unsigned char byte) { return byte == 0; }));
    EXPECT_EQ(id_, 0xFFFFFFFFu);
    const kiv::test::MemoryRegion region = RegionOf(view_);
    EXPECT_EQ(region.sizeBytes, 20480u);
    EXPECT_EQ(region.access, PageAccess::kReadWrite);
    ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
  }
}

TEST_F(SegmentDescriptor, AcceptsTheLongestNamesThatTheSystemsSemaphoresAccept) {
  KivSharedMemSeg* segment = Make(std::string(256, 'n'));
  EXPECT_TRUE(HasMember(std::string(256, 'n'), 20));
  ASSERT_EQ(KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_OK);
  for (const size_t length : {257u, 258u, 259u}) {
    const std::string name(length, 'n');
    CHECK_SILENT(ctx_, Create(segment, name), KIV_ST_SEM_CREATE);
    EXPECT_EQ(std::string(segment->name), name) << "the name must pass the length check";
    EXPECT_EQ(segment->semaphores, nullptr);
    EXPECT_EQ(segment->mapping, nullptr);
    EXPECT_EQ(view_, Unwritten());
  }
}

TEST_F(SegmentDescriptor, IsUnchangedIfTheNameOrTheKindIsRefused) {
  KivSharedMemSeg* segment = Find("refused");
  KivSharedMemSeg before = *segment;
  for (const size_t length : {260u, 261u, 5000u}) {
    CHECK_SILENT(ctx_, Create(segment, std::string(length, 'n')), KIV_ST_SEGMENT_NAME);
  }
  for (const uint32_t kind : {2u, 3u, 0x80000000u, 0xFFFFFFFFu}) {
    CHECK_SILENT(ctx_, Create(segment, "name", kind), KIV_ST_SEGMENT_NAME);
  }
  EXPECT_EQ(std::memcmp(segment, &before, sizeof before), 0);
  EXPECT_EQ(view_, Unwritten());
}

TEST_F(SegmentDescriptor, CannotBeSetUpWithAnEmptyName) {
  KivSharedMemSeg* segment = Find("empty");
  CHECK_ARGUMENT(ctx_, Create(segment, ""));
  EXPECT_EQ(segment->semaphores, nullptr);
}

TEST_F(SegmentDescriptor, CanBeSetUpAgainWithItsOwnName) {
  const std::string name = UniqueName("own");
  KivSharedMemSeg* segment = Make(name);
  ASSERT_EQ(KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_OK);
  const char* own = nullptr;
  CHECK_SILENT(ctx_, KivGetSharedMemSegName(ctx_, segment, &own), KIV_ST_OK);
  EXPECT_EQ(static_cast<const void*>(own), segment);
  ASSERT_EQ(
      KivCreateSharedMemSeg(ctx_, own, 1, kWritableView, kWritablePages, segment, 0, &id_, &view_),
      KIV_ST_OK);
  EXPECT_EQ(std::string(segment->name), name);
  ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
}

TEST_F(SegmentDescriptor, HasNoSemaphoresIfTheAreaCannotBeMade) {
  const std::string name = UniqueName("taken");
  const TakenName taken(name);
  KivSharedMemSeg* segment = Find(name);
  CHECK_OUTCOME(ctx_, Create(segment, name), KIV_ST_SHARED_MEM_ALLOC, kOsNameOfOtherKind);
  EXPECT_EQ(segment->semaphores, nullptr);
  EXPECT_EQ(segment->mapping, nullptr);
  EXPECT_FALSE(HasMember(name, 0));
  EXPECT_EQ(segment->kind, 0u) << "the kind is stored only after success";

  const std::string other = UniqueName("no-place");
  CHECK_ARGUMENT(ctx_, KivCreateSharedMemSeg(ctx_, other.c_str(), 1, kWritableView, kWritablePages,
                                             segment, 0, &id_, nullptr));
  CHECK_ARGUMENT(ctx_, KivCreateSharedMemSeg(ctx_, other.c_str(), 1, kWritableView, kWritablePages,
                                             segment, 0, nullptr, &view_));
  EXPECT_FALSE(HasMember(other, 0));
  EXPECT_EQ(segment->semaphores, nullptr);
}

TEST_F(SegmentDescriptor, KeepsItsAreaIfSettingItUpAgainFails) {
  const std::string name = UniqueName("again");
  const TakenName taken(name + "-taken");  // no area can have this name
  const struct {
    std::string name;
    uint32_t status;
  } failures[] = {{std::string(259, 'n'), KIV_ST_SEM_CREATE},
                  {name + "-taken", KIV_ST_SHARED_MEM_ALLOC}};
  KivSharedMemSeg* segment = Find(name);
  for (const auto& failure : failures) {
    ASSERT_EQ(Create(segment, name), KIV_ST_OK);
    ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
    const KivHandle area = segment->mapping;
    ASSERT_NE(area, nullptr);
    // Setting up overwrites the reference to the set, so the test closes the set first.
    ASSERT_EQ(KivSdShSemSetClose(ctx_, segment->semaphores), KIV_ST_OK);
    EXPECT_EQ(Create(segment, failure.name), failure.status);
    EXPECT_EQ(segment->semaphores, nullptr);
    EXPECT_EQ(segment->mapping, area);
    EXPECT_TRUE(HasArea(name));
    CHECK_OK(ctx_, KivDeleteSingleSharedMemSeg(ctx_, segment));
    EXPECT_FALSE(HasArea(name));
  }
}

TEST_F(SegmentDescriptor, OpensAnExistingAreaWithTheGivenFlags) {
  const std::string name = UniqueName("open");
  KivSharedMemSeg* segment = Find(name);
  EXPECT_EQ(KivCreateSharedMemSeg(ctx_, name.c_str(), 1, KIV_SHAREDMEM_READ, kWritablePages,
                                  segment, 0, &id_, &view_),
            KIV_ST_SHARED_MEM_ALLOC);
  const SegmentEnd owner(name, 0);
  ASSERT_EQ(KivCreateSharedMemSeg(ctx_, name.c_str(), 1, KIV_SHAREDMEM_READ, kWritablePages,
                                  segment, 0, &id_, &view_),
            KIV_ST_OK);
  const kiv::test::MemoryRegion region = RegionOf(view_);
  EXPECT_EQ(region.access, PageAccess::kRead);
  ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
  static_cast<unsigned char*>(owner->buffer)[5] = 77;
  EXPECT_EQ(static_cast<unsigned char*>(view_)[5], 77);
}

// ---- Arguments ----

TEST_F(SegmentDescriptor, RefusesNullPointersAndRecordsNothing) {
  KivSharedMemSeg* segment = Unwritten();
  const char* name = nullptr;
  CHECK_SILENT(ctx_,
               KivFindShareMemSeg(ctx_, nullptr, 1, &list_, 1, 1, 2, nullptr, nullptr, &segment),
               KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivFindShareMemSeg(ctx_, "n", 1, nullptr, 1, 1, 2, nullptr, nullptr, &segment),
               KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivFindShareMemSeg(ctx_, "n", 1, &list_, 1, 1, 2, nullptr, nullptr, nullptr),
               KIV_ST_ARGUMENT);
  EXPECT_EQ(segment, Unwritten());
  EXPECT_EQ(list_, nullptr);
  CHECK_SILENT(ctx_, Create(nullptr, "name"), KIV_ST_ARGUMENT);
  segment = Find("name");
  CHECK_SILENT(ctx_, KivCreateSharedMemSeg(ctx_, nullptr, 1, 0, 0, segment, 0, &id_, &view_),
               KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivSetSharedMemSegBuffer(ctx_, nullptr, &id_), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivGetSharedMemSegName(ctx_, nullptr, &name), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivGetSharedMemSegName(ctx_, segment, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivDeleteSingleSharedMemSeg(ctx_, nullptr), KIV_ST_ARGUMENT);
  CHECK_SILENT(ctx_, KivDeleteSharedMemSeg(ctx_, nullptr), KIV_ST_OK);
}

TEST_F(SegmentDescriptor, HasNoChunksBeforeItIsSetUp) {
  KivSharedMemSeg* segment = Find("bare");
  char byte = 'a';
  uint32_t code = 0;
  for (const int32_t chunk : {0, 4}) {
    CHECK_SILENT(ctx_, KivPutSharedMemChunk(ctx_, segment, chunk), KIV_ST_ARGUMENT);
    CHECK_SILENT(ctx_, KivWriteSharedMemChunk(ctx_, segment, chunk, 1, 1, 1, &byte),
                 KIV_ST_ARGUMENT);
    CHECK_SILENT(ctx_, KivReadSharedMemChunkCode(ctx_, segment, chunk, &code), KIV_ST_ARGUMENT);
  }
  int32_t chunk = 0;
  CHECK_ARGUMENT(ctx_, KivGetSharedMemChunk(ctx_, segment, &chunk));  // recorded by the set
}

// ---- Tearing down ----

TEST_F(SegmentDescriptor, IsFreedWithItsListWhetherOrNotItWasSetUp) {
  const std::string name = UniqueName("list");
  BlockCount blocks;
  KivSharedMemSeg* bare = Find("bare");
  KivSharedMemSeg* single = Make(name + "1", 0);
  Make(name + "2", 1);
  Make(name + "3", 0);
  ASSERT_EQ(KivDeleteSingleSharedMemSeg(ctx_, single), KIV_ST_OK);
  EXPECT_EQ(list_, bare);
  EXPECT_EQ(bare->next, single);
  CHECK_OK(ctx_, KivDeleteSharedMemSeg(ctx_, list_));
  list_ = nullptr;
  for (const char* suffix : {"1", "2", "3"}) {
    EXPECT_FALSE(HasArea(name + suffix));
    EXPECT_FALSE(HasMember(name + suffix, 0));
  }
  EXPECT_EQ(blocks.allocated(), 4u + 3u * 2u);
  EXPECT_EQ(blocks.freed(), blocks.allocated());
}

TEST_F(SegmentDescriptor, StaysInItsListAfterItIsClosedAlone) {
  const std::string name = UniqueName("single");
  KivSharedMemSeg* segment = Make(name);
  void* view = segment->buffer;
  CHECK_OK(ctx_, KivDeleteSingleSharedMemSeg(ctx_, segment));
  EXPECT_EQ(segment->semaphores, nullptr);
  EXPECT_EQ(segment->mapping, nullptr);
  EXPECT_FALSE(HasArea(name));
  EXPECT_FALSE(HasMember(name, 20));
  const kiv::test::MemoryRegion region = RegionOf(view);
  EXPECT_FALSE(region.mapped);
  int32_t chunk = 0;
  CHECK_ARGUMENT(ctx_, KivGetSharedMemChunk(ctx_, segment, &chunk));
  CHECK_SILENT(ctx_, KivDeleteSingleSharedMemSeg(ctx_, segment), KIV_ST_OK);
  EXPECT_EQ(Find(name), segment);
  ASSERT_EQ(Create(segment, name), KIV_ST_OK);
  ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, view_), KIV_ST_OK);
}

TEST_F(SegmentDescriptor, WithoutAViewOnlyClosesItsHandle) {
  const std::string name = UniqueName("viewless");
  KivSharedMemSeg* segment = Make(name);
  UnmapView(segment->buffer);
  ASSERT_EQ(KivSetSharedMemSegBuffer(ctx_, segment, nullptr), KIV_ST_OK);
  CHECK_OK(ctx_, KivDeleteSingleSharedMemSeg(ctx_, segment));
  EXPECT_FALSE(HasArea(name));
}

}  // namespace
