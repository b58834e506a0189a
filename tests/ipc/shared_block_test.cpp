// Named shared memory blocks within one process and between two processes.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#endif

#include <string>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/memory_region.h"
#include "support/os_errors.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::GuardWatch;
using kiv::test::kOsBadHandle;
using kiv::test::kOsNameOfOtherKind;
using kiv::test::kOsNotFound;
using kiv::test::kRoleDone;
using kiv::test::PageAccess;
using kiv::test::RegionOf;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::UniqueName;

constexpr uint32_t kWritable = KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE;
constexpr uint32_t kPages = KIV_SHAREDMEM_PAGES_READ_WRITE;
constexpr uint32_t kBytes = 10'000;

// The outputs of an allocation. The destructor frees the block.
struct Block {
  Block() = default;
  ~Block() {
    if (mapping != nullptr) {
      EXPECT_EQ(KivSdSharedMemFree(nullptr, mapping, view), KIV_ST_OK);
    }
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  uint32_t Alloc(KivSdContext* ctx, const std::string& name, uint32_t openFlags = kWritable,
                 uint32_t protectionFlags = kPages, uint32_t sizeBytes = kBytes) {
    return KivSdSharedMemAlloc(ctx, name.c_str(), sizeBytes, openFlags, protectionFlags, &mapping,
                               &id, &view);
  }

  unsigned char* bytes() const { return static_cast<unsigned char*>(view); }

  KivHandle mapping = nullptr;
  uint32_t id = 0;
  void* view = nullptr;
};

// Opens the block, whatever its size.
bool Exists(const std::string& name) {
  Block block;
  return block.Alloc(nullptr, name, KIV_SHAREDMEM_READ, 0, 0) == KIV_ST_OK;
}

// Children inherit what was opened and not what was made. Natively a process that runs another
// program passes no handles to it.
void ExpectInherited(KivHandle handle, bool expected) {
#ifdef _WIN32
  DWORD flags = 0;
  EXPECT_TRUE(GetHandleInformation(handle, &flags));
  EXPECT_EQ((flags & HANDLE_FLAG_INHERIT) != 0, expected);
#else
  static_cast<void>(handle);
  static_cast<void>(expected);
#endif
}

TEST(SharedBlock, IsMadeZeroedAndMappedWhole) {
  Context ctx;
  Block block;
  const std::string name = UniqueName("block");
  CHECK_OK(ctx, block.Alloc(ctx, name));
  EXPECT_EQ(block.id, 0xFFFFFFFFu);
  ASSERT_NE(block.view, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(block.view), kBytes), std::string(kBytes, '\0'));
  EXPECT_EQ(RegionOf(block.view).sizeBytes, 12288u);
  EXPECT_EQ(RegionOf(block.view).access, PageAccess::kReadWrite);
  EXPECT_TRUE(Exists(name));
  ExpectInherited(block.mapping, false);
}

TEST(SharedBlock, WithAnExistingNameIsTheExistingBlock) {
  Context ctx;
  const std::string name = UniqueName("again");
  Block first;
  CHECK_OK(ctx, first.Alloc(ctx, name));
  for (const uint32_t flags : {kWritable, kWritable | KIV_SHAREDMEM_EXCLUSIVE}) {
    Block second;
    CHECK_OK(ctx, second.Alloc(ctx, name, flags));
    ASSERT_NE(second.view, nullptr);
    EXPECT_NE(second.view, first.view);
    first.bytes()[kBytes - 1] ^= 0x55;
    EXPECT_EQ(second.bytes()[kBytes - 1], first.bytes()[kBytes - 1]);
  }
}

TEST(SharedBlock, IsOpenedWithAnInheritableHandleWithoutBeingMade) {
  Context ctx;
  const std::string name = UniqueName("open");
  Block missing;
  missing.view = &ctx;
  CHECK_OUTCOME(ctx, missing.Alloc(ctx, name, KIV_SHAREDMEM_WRITE), KIV_ST_SHARED_MEM_ALLOC,
                kOsNotFound);
  EXPECT_EQ(missing.mapping, nullptr);
  EXPECT_EQ(missing.view, nullptr);
  EXPECT_EQ(missing.id, 0xFFFFFFFFu);

  Block made;
  CHECK_OK(ctx, made.Alloc(ctx, name));
  Block opened;
  CHECK_OK(ctx, opened.Alloc(ctx, name, KIV_SHAREDMEM_WRITE, 0, 0));
  EXPECT_EQ(RegionOf(opened.view).sizeBytes, 12288u) << "a size of 0 maps the whole block";
  ExpectInherited(opened.mapping, true);
  opened.bytes()[9] = 9;
  EXPECT_EQ(made.bytes()[9], 9);
}

TEST(SharedBlock, IsMappedWithTheAccessOfTheFlags) {
  Context ctx;
  const std::string name = UniqueName("access");
  Block made;
  CHECK_OK(ctx, made.Alloc(ctx, name));
  const struct {
    uint32_t flags;
    PageAccess access;
  } views[] = {{1, PageAccess::kRead},
               {2, PageAccess::kReadWrite},
               {4, PageAccess::kReadWrite},
               {3, PageAccess::kReadWrite},
               {0x40000000, PageAccess::kRead},
               {0x80000000, PageAccess::kReadWrite},
               {0x40000002, PageAccess::kReadWrite},
               {9, PageAccess::kRead}};
  for (const auto& [flags, access] : views) {
    Block view;
    CHECK_OK(ctx, view.Alloc(ctx, name, flags));
    EXPECT_EQ(RegionOf(view.view).access, access) << std::hex << flags;
  }
}

TEST(SharedBlock, CanHaveReadOnlyPages) {
  Context ctx;
  const std::string name = UniqueName("pages");
  Block made;
  CHECK_OK(ctx, made.Alloc(ctx, name, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_READ,
                           KIV_SHAREDMEM_PAGES_READ_ONLY));
  EXPECT_EQ(RegionOf(made.view).access, PageAccess::kRead);
}

TEST(SharedBlock, IsNotMadeWithSizeZeroOrWithTheNameOfAnotherObject) {
  Context ctx;
  Block block;
  ctx.Spoil();
  EXPECT_EQ(block.Alloc(ctx, UniqueName("nothing"), kWritable, kPages, 0), KIV_ST_SHARED_MEM_ALLOC);
  EXPECT_NE(ctx.osError(), 0u);
  const std::string taken = UniqueName("mutex");
  KivHandle mutex = nullptr;
  CHECK_OK(ctx, KivSdMutexCreate(ctx, taken.c_str(), &mutex));
  for (const uint32_t flags : {kWritable, kWritable | KIV_SHAREDMEM_EXCLUSIVE}) {
    CHECK_OUTCOME(ctx, block.Alloc(ctx, taken, flags), KIV_ST_SHARED_MEM_ALLOC, kOsNameOfOtherKind);
  }
  CHECK_OK(ctx, KivSdMutexClose(ctx, &mutex));
}

TEST(SharedBlock, IsUnmappedAndClosedWhenFreed) {
  Context ctx;
  const std::string name = UniqueName("free");
  Block block;
  CHECK_OK(ctx, block.Alloc(ctx, name));
  CHECK_OK(ctx, KivSdSharedMemFree(ctx, block.mapping, block.view));
  EXPECT_FALSE(Exists(name));
  EXPECT_FALSE(RegionOf(block.view).mapped);
  CHECK_OUTCOME(ctx, KivSdSharedMemFree(ctx, block.mapping, block.view), KIV_ST_SHARED_MEM_FREE,
                kOsBadHandle);
  block.mapping = nullptr;
}

TEST(SharedBlock, IsOnlyClosedWhenFreedWithoutAView) {
  Context ctx;
  const std::string name = UniqueName("close");
  Block block;
  CHECK_OK(ctx, block.Alloc(ctx, name));
  CHECK_OK(ctx, KivSdSharedMemFree(ctx, block.mapping, nullptr));
  block.mapping = nullptr;
  EXPECT_FALSE(Exists(name));
  block.bytes()[0] = 1;  // still mapped
  EXPECT_EQ(KivSdSharedMemFree(nullptr, nullptr, block.view), KIV_ST_SHARED_MEM_FREE);
  EXPECT_FALSE(RegionOf(block.view).mapped);
  CHECK_OUTCOME(ctx, KivSdSharedMemFree(ctx, nullptr, nullptr), KIV_ST_SHARED_MEM_FREE,
                kOsBadHandle);
}

TEST(SharedBlock, RefusesNullPointersAndWritesNoOutput) {
  Context ctx;
  KivHandle mapping = &ctx;
  uint32_t id = 4711;
  void* view = &ctx;
  CHECK_ARGUMENT(ctx, KivSdSharedMemAlloc(ctx, nullptr, 1, 10, 1, &mapping, &id, &view));
  CHECK_ARGUMENT(ctx, KivSdSharedMemAlloc(ctx, "null", 1, 10, 1, nullptr, &id, &view));
  CHECK_ARGUMENT(ctx, KivSdSharedMemAlloc(ctx, "null", 1, 10, 1, &mapping, nullptr, &view));
  CHECK_ARGUMENT(ctx, KivSdSharedMemAlloc(ctx, "null", 1, 10, 1, &mapping, &id, nullptr));
  EXPECT_EQ(mapping, &ctx);
  EXPECT_EQ(id, 4711u);
  EXPECT_EQ(view, &ctx);
  EXPECT_FALSE(Exists("null"));
}

TEST(SharedBlock, WorksWithoutAContext) {
  Block block;
  EXPECT_EQ(block.Alloc(nullptr, UniqueName("no-context")), KIV_ST_OK);
  EXPECT_EQ(KivSdSharedMemFree(nullptr, nullptr, nullptr), KIV_ST_SHARED_MEM_FREE);
  EXPECT_EQ(KivSdSharedMemAlloc(nullptr, nullptr, 1, 10, 1, nullptr, nullptr, nullptr),
            KIV_ST_ARGUMENT);
}

TEST(SharedBlock, RunsTheLeaseGuardOnAllocationAndNotOnFree) {
  for (const int mode : {0, 1, 0x80}) {
    GuardWatch guard(static_cast<uint8_t>(mode));
    Context ctx;
    Block block;
    CHECK_OK(ctx, block.Alloc(ctx, UniqueName("guard")));
    EXPECT_EQ(guard.TakeRuns(), mode != 0 ? 1u : 0u);
    CHECK_ARGUMENT(ctx, KivSdSharedMemAlloc(ctx, nullptr, 1, 10, 1, nullptr, nullptr, nullptr));
    EXPECT_EQ(guard.TakeRuns(), mode != 0 ? 1u : 0u);
    CHECK_OK(ctx, KivSdSharedMemFree(ctx, block.mapping, block.view));
    block.mapping = nullptr;
    EXPECT_EQ(guard.TakeRuns(), 0u);
  }
}

// ---- Two processes ----

// {name}: adds 1 to every byte of the block.
const RegisteredRole adder("adds-one", [](const RoleArguments& arguments) {
  Context ctx;
  Block block;
  CHECK_OK(ctx, block.Alloc(ctx, arguments[0], KIV_SHAREDMEM_WRITE));
  if (block.view == nullptr) return kiv::test::kRoleFailed;
  for (uint32_t i = 0; i < kBytes; ++i) ++block.bytes()[i];
  return kRoleDone;
});

TEST(SharedBlock, IsSharedByTwoProcesses) {
  Context ctx;
  Block block;
  const std::string name = UniqueName("shared");
  CHECK_OK(ctx, block.Alloc(ctx, name));
  for (uint32_t i = 0; i < kBytes; ++i) block.bytes()[i] = static_cast<unsigned char>(i * 7);
  const ChildProcess child("adds-one", {name});
  EXPECT_EQ(child.ExitCode(), kRoleDone);
  for (uint32_t i = 0; i < kBytes; ++i) {
    ASSERT_EQ(block.bytes()[i], static_cast<unsigned char>(i * 7 + 1)) << i;
  }
}

}  // namespace
