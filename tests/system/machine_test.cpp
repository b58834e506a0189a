// Processors, the system's name and version, physical memory, and the limits of sizes and numbers.
#include <gtest/gtest.h>

#include <cfloat>
#include <limits>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/machine_facts.h"
#include "support/process.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::ExpectField;
using kiv::test::Guarded;
using kiv::test::ImportPatch;
using kiv::test::PageBytesOfMachine;
using kiv::test::ProcessorsOfMachine;
using kiv::test::ScriptedImport;

constexpr uint64_t kKiB = 1024;
constexpr uint64_t kTiB = kKiB * kKiB * kKiB * kKiB;
constexpr uint32_t kMax = 0xFFFFFFFF;

// The names of the system, by bit 28 of its version word.
#ifdef _WIN32
constexpr char kSystemName[] = "Windows NT";
constexpr char kOtherSystemName[] = "Windows";
#else
constexpr char kSystemName[] = "Linux";
constexpr char kOtherSystemName[] = "Linux";
#endif

// ---- Processors ----

DWORD processorCount;
DWORD processorType;

void WINAPI FakeSystemInfo(LPSYSTEM_INFO info) {
  *info = {};
  info->dwPageSize = 65536;
  info->dwNumberOfProcessors = processorCount;
  info->dwProcessorType = processorType;
}

// Fake processors.
class FakeProcessors {
 public:
  FakeProcessors(DWORD count, DWORD type) {
    processorCount = count;
    processorType = type;
  }

 private:
  ImportPatch patch_{"GetSystemInfo", reinterpret_cast<void*>(&FakeSystemInfo)};
};

TEST(Processor, IsTheOneThatTheSystemReports) {
  Context ctx;
  Guarded<KivSdProcessorInfo> info;
  CHECK_OK(ctx, KivSdCPUInfoGet(ctx, info));
  EXPECT_EQ(info->count, ProcessorsOfMachine());
  EXPECT_EQ(info->kind, KIV_PROCESSOR_X86_64);
  ExpectField(info->name, "X86_64");
  EXPECT_EQ(KivSdCPUInfoGet(nullptr, info), KIV_ST_OK);
  EXPECT_EQ(KivSdCPUCountGet(), ProcessorsOfMachine());
}

TEST(Processor, HasAKindAndANameForEveryKnownType) {
  struct {
    DWORD type;
    uint32_t kind;
    const char* name;
  } const cases[] = {
      {386, 3, "80386"},
      {486, 4, "80486"},
      {586, 5, "Pentium"},
      {4000, 6, "MIPS R4000"},
      {8664, 24, "X86_64"},
      {21064, 7, "Alpha 21064"},
      {2200, 32, "Intel Architecture-64"},
  };
  for (const auto& [type, kind, name] : cases) {
    const FakeProcessors processors(2, type);
    Context ctx;
    Guarded<KivSdProcessorInfo> info;
    CHECK_OK(ctx, KivSdCPUInfoGet(ctx, info));
    EXPECT_EQ(info->count, 2u);
    EXPECT_EQ(info->kind, kind);
    ExpectField(info->name, name);
  }
}

TEST(Processor, OfAnUnknownTypeIsCalledUnknown) {
  for (const DWORD type : {0u, 1u, 385u, 387u, 686u, 2201u, 8663u, 21065u, kMax}) {
    const FakeProcessors processors(1, type);
    Context ctx;
    Guarded<KivSdProcessorInfo> info;
    CHECK_OK(ctx, KivSdCPUInfoGet(ctx, info));
    EXPECT_EQ(info->kind, KIV_PROCESSOR_UNKNOWN);
    ExpectField(info->name, "Unknown");
  }
}

TEST(Processor, CountIsAtLeastOne) {
  const struct {
    DWORD told;
    uint32_t count;
  } cases[] = {{0, 1}, {1, 1}, {2, 2}, {64, 64}, {kMax, kMax}};
  for (const auto& [told, count] : cases) {
    const FakeProcessors processors(told, 8664);
    EXPECT_EQ(KivSdCPUCountGet(), count);
  }
}

TEST(ProcessorDeathTest, NeedsARecord) {
  EXPECT_ASSERTION(KivSdCPUInfoGet(nullptr, nullptr), "pCPUInfo != KIV_NULL", "sd/sdcommon", 1420);
}

// ---- The system ----

TEST(System, HasTheNameAndTheNumbersOfItsVersionWord) {
  struct {
    uint32_t word;
    const char* name;
    const char* version;
  } const cases[] = {
      {0x00000206, kSystemName, "6.02"},         {0x23F00206, kSystemName, "6.02"},
      {0x10000206, kOtherSystemName, "6.02"},  // bit 28 selects the name
      {0x80000A04, kSystemName, "4.10"},       // the top bit does not
      {0x90000A04, kOtherSystemName, "4.10"},    {0xEFFFFFFF, kSystemName, "255.255"},
      {0xFFFFFFFF, kOtherSystemName, "255.255"}, {0x0000000A, kSystemName, "10.00"},
      {0x00006300, kSystemName, "0.99"},         {0x00006401, kSystemName, "1.100"},
      {0x00000000, kSystemName, "0.00"},
  };
  for (const auto& [word, name, version] : cases) {
    const ScriptedImport scripted("GetVersion", {.result = word});
    Context ctx;
    Guarded<KivSdOSInfo> info;
    CHECK_OK(ctx, KivSdOSInfoGet(ctx, info));
    ExpectField(info->name, name);
    ExpectField(info->version, version);
  }
}

TEST(System, NeedsNoContext) {
  Guarded<KivSdOSInfo> info;
  EXPECT_EQ(KivSdOSInfoGet(nullptr, info), KIV_ST_OK);
  const std::string name = info->name;
  EXPECT_TRUE(name == kSystemName || name == kOtherSystemName) << name;
}

TEST(SystemDeathTest, NeedsARecord) {
  EXPECT_ASSERTION(KivSdOSInfoGet(nullptr, nullptr), "pOSInfo != KIV_NULL", "sd/sdcommon", 1466);
}

// ---- Memory ----

// Fake physical memory.
struct FakeMemory {
  FakeMemory() { current = this; }
  ~FakeMemory() { current = nullptr; }
  FakeMemory(const FakeMemory&) = delete;
  FakeMemory& operator=(const FakeMemory&) = delete;

  static void WINAPI Physical(LPMEMORYSTATUS status) {
    EXPECT_EQ(status->dwLength, sizeof *status);
    status->dwTotalPhys = current->totalPhysical;
    status->dwAvailPhys = current->availablePhysical;
    status->dwTotalPageFile = status->dwAvailPageFile = 77 * kKiB;
  }

  static BOOL WINAPI Paging(LPMEMORYSTATUSEX status) {
    EXPECT_EQ(status->dwLength, sizeof *status);
    status->ullTotalPageFile = current->totalPaging;
    status->ullAvailPageFile = current->availablePaging;
    status->ullTotalPhys = status->ullAvailPhys = 77 * kKiB;
    return current->canReadPaging;
  }

  static inline FakeMemory* current = nullptr;

  uint64_t totalPhysical = 64 * kKiB;
  uint64_t availablePhysical = 16 * kKiB;
  uint64_t totalPaging = 128 * kKiB;
  uint64_t availablePaging = 32 * kKiB;
  BOOL canReadPaging = TRUE;
  ImportPatch physicalPatch{"GlobalMemoryStatus", reinterpret_cast<void*>(&Physical)};
  ImportPatch pagingPatch{"GlobalMemoryStatusEx", reinterpret_cast<void*>(&Paging)};
};

TEST(PhysicalMemory, OfThisMachineAddsUp) {
  Context ctx;
  Guarded<KivSdPhysMemInfo> info;
  CHECK_OK(ctx, KivSdPhysMemInfoGet(ctx, info));
  EXPECT_GT(info->totalKiB, kKiB);
  EXPECT_GT(info->availableKiB, 0u);
  EXPECT_LE(info->availableKiB, info->totalKiB);
  EXPECT_EQ(info->usedKiB, info->totalKiB - info->availableKiB);
  EXPECT_EQ(KivSdPhysMemInfoGet(nullptr, info), KIV_ST_OK);
}

TEST(PhysicalMemory, IsInKibibytesThatFitThirtyTwoBits) {
  struct {
    uint64_t total, available;
    uint32_t totalKiB, usedKiB, availableKiB;
  } const cases[] = {
      {64 * kKiB, 16 * kKiB, 64, 48, 16},
      {2047, 1023, 1, 1, 0},
      {4 * kTiB - kKiB, 0, kMax, kMax, 0},
      {4 * kTiB - kKiB - 1, 0, kMax - 1, kMax - 1, 0},
      {4 * kTiB, kKiB, kMax, kMax - 1, 1},
      {16 * kTiB, 8 * kTiB, kMax, 0, kMax},  // the clamped sizes are subtracted
      {UINT64_MAX, UINT64_MAX - 1, kMax, 0, kMax},
      {0, 0, 0, 0, 0},
  };
  for (const auto& c : cases) {
    FakeMemory memory;
    memory.totalPhysical = c.total;
    memory.availablePhysical = c.available;
    Context ctx;
    Guarded<KivSdPhysMemInfo> info;
    CHECK_OK(ctx, KivSdPhysMemInfoGet(ctx, info));
    EXPECT_EQ(info->totalKiB, c.totalKiB);
    EXPECT_EQ(info->usedKiB, c.usedKiB);
    EXPECT_EQ(info->availableKiB, c.availableKiB);
  }
}

TEST(PhysicalMemoryDeathTest, NeedsARecord) {
  EXPECT_ASSERTION(KivSdPhysMemInfoGet(nullptr, nullptr), "pPhysMemInfo != KIV_NULL", "sd/sdosrw32",
                   210);
}

TEST(AvailableMemory, IsFreePagingSpacePlusAvailablePhysicalMemory) {
  FakeMemory memory;
  Context ctx;
  uint64_t sizeKiB = 0;
  CHECK_OK(ctx, KivSdAvailVirtMemGet(ctx, &sizeKiB));
  EXPECT_EQ(sizeKiB, 48u);
  EXPECT_EQ(KivSdAvailVirtMemGet(nullptr, &sizeKiB), KIV_ST_OK);
}

TEST(AvailableMemory, AddsTheClampedSizesInSixtyFourBits) {
  FakeMemory memory;
  memory.availablePhysical = memory.availablePaging = 16 * kTiB;
  uint64_t sizeKiB = 0;
  EXPECT_EQ(KivSdAvailVirtMemGet(nullptr, &sizeKiB), KIV_ST_OK);
  EXPECT_EQ(sizeKiB, 0x1FFFFFFFEull);
}

TEST(AvailableMemory, DoesNotNeedThePagingFileSetting) {
  FakeMemory memory;
  const ScriptedImport open("RegOpenKeyExA", {.result = 2});
  Context ctx;
  uint64_t sizeKiB = 0;
  CHECK_OK(ctx, KivSdAvailVirtMemGet(ctx, &sizeKiB));
  EXPECT_EQ(sizeKiB, 48u);
}

TEST(AvailableMemory, FailsWithoutTheMemoryStatus) {
  FakeMemory memory;
  memory.canReadPaging = FALSE;
  kiv::test::SetErrors(31, 31);
  Context ctx;
  uint64_t sizeKiB = 7;
  CHECK_OUTCOME(ctx, KivSdAvailVirtMemGet(ctx, &sizeKiB), KIV_ST_AVAIL_VIRT_MEM, 0u);
  EXPECT_EQ(sizeKiB, 7u);
  EXPECT_EQ(KivSdAvailVirtMemGet(nullptr, &sizeKiB), KIV_ST_AVAIL_VIRT_MEM);
}

TEST(AvailableMemoryDeathTest, RefusesANullSize) {
  EXPECT_ASSERTION(KivSdAvailVirtMemGet(nullptr, nullptr), "pSizeAvailVirtMem != KIV_NULL",
                   "sd/sdcommon", 1502);
}

// ---- Limits ----

TEST(PageSize, IsTheSystems) {
  Context ctx;
  Guarded<uint32_t> sizeBytes;
  CHECK_OK(ctx, KivSdPageSizeGet(ctx, sizeBytes));
  EXPECT_EQ(*sizeBytes, PageBytesOfMachine());
  const FakeProcessors otherMachine(1, 8664);
  EXPECT_EQ(KivSdPageSizeGet(nullptr, sizeBytes), KIV_ST_OK);
  EXPECT_EQ(*sizeBytes, 65536u);
}

TEST(LargestAllocation, IsTheLargestSizeMinusThirtyTwo) {
  Context ctx;
  Guarded<uint64_t> sizeBytes;
  CHECK_OK(ctx, KivSdMaxAllocGet(ctx, sizeBytes));
  EXPECT_EQ(*sizeBytes, 0xFFFFFFFFFFFFFFE0ull);
  EXPECT_EQ(KivSdMaxAllocGet(nullptr, sizeBytes), KIV_ST_OK);
}

TEST(LargestAlignment, IsEight) {
  Context ctx;
  Guarded<uint32_t> alignment;
  CHECK_OK(ctx, KivSdMaxAlignGet(ctx, alignment));
  EXPECT_EQ(*alignment, 8u);
  EXPECT_EQ(KivSdMaxAlignGet(nullptr, alignment), KIV_ST_OK);
}

TEST(Infinite, NumbersAreFlagged) {
  using Limits = std::numeric_limits<double>;
  for (const double value : {Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(),
                             -Limits::quiet_NaN(), Limits::signaling_NaN()}) {
    Context ctx;
    Guarded<uint8_t> flag;
    CHECK_OK(ctx, KivSdIsInfinite(ctx, value, flag));
    EXPECT_EQ(*flag, 1);
  }
}

TEST(Infinite, FiniteNumbersAreNotFlagged) {
  for (const double value : {0.0, -0.0, 1.0, -1.0, DBL_MAX, -DBL_MAX, DBL_MIN,
                             std::numeric_limits<double>::denorm_min()}) {
    Context ctx;
    Guarded<uint8_t> flag;
    CHECK_OK(ctx, KivSdIsInfinite(ctx, value, flag));
    EXPECT_EQ(*flag, 0);
  }
}

TEST(Limits, RefuseNullResults) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdPageSizeGet(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdMaxAllocGet(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdMaxAlignGet(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdIsInfinite(ctx, 1.0, nullptr));
  EXPECT_EQ(KivSdPageSizeGet(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdMaxAllocGet(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdMaxAlignGet(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdIsInfinite(nullptr, 1.0, nullptr), KIV_ST_ARGUMENT);
}

}  // namespace
