// The memory manager's settings: their defaults, ranges and listing, and the search for their file.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "support/memory_settings.h"

namespace {

using kiv::MemorySettings;
using kiv::test::Defaults;
using kiv::test::Parse;
using kiv::test::PrintedBy;
using kiv::test::TemporaryFolder;

constexpr uint64_t kMiB = 1048576;

TEST(MemorySettings, AreZeroBeforeTheManagerIsInitialised) {
  EXPECT_EQ(kiv::memorySettings, MemorySettings{});
}

TEST(MemorySettings, HaveDefaults) {
  const MemorySettings settings = kiv::DefaultMemorySettings();
  EXPECT_EQ(settings.heapBudget, 64);
  EXPECT_EQ(settings.threadHeaps, 0);
  EXPECT_EQ(settings.heapBytes, 0x200000u);
  EXPECT_EQ(settings.shortHeapBytes, 0x50000u);
  EXPECT_EQ(settings.largestBlockBytes, 0x10000u);
  EXPECT_EQ(settings.limitBytes, 0u);
  EXPECT_EQ(settings.allocatedFill, 0xFF);
  EXPECT_EQ(settings.freedFill, 0xAB);
  EXPECT_EQ(settings.shortPoolMost, 16);
  EXPECT_EQ(settings.shortPoolDrainedAbove, 4);
  EXPECT_FALSE(settings.memoryControl);
  EXPECT_FALSE(settings.blockStatistics);
  EXPECT_TRUE(settings.shortHeaps);
  EXPECT_FALSE(settings.limitRejected);
}

// ---- Ranges ----

MemorySettings Validated(MemorySettings settings, const std::string& printed = "") {
  EXPECT_EQ(PrintedBy([&] { kiv::ValidateMemorySettings(&settings); }), printed);
  return settings;
}

// Default settings with thread heaps, as an open file selects them.
MemorySettings Configured(const std::function<void(MemorySettings*)>& change) {
  return Defaults([&](MemorySettings* s) {
    s->threadHeaps = 16;
    s->memoryControl = true;
    change(s);
  });
}

TEST(MemorySettingsRange, LeavesTheDefaultsUnchanged) {
  const MemorySettings settings = Configured([](MemorySettings*) {});
  EXPECT_EQ(Validated(settings), settings);
}

TEST(MemorySettingsRange, OfThreadHeapsIsFourToSixtyFour) {
  const struct {
    int32_t count;
    int32_t held;
  } cases[] = {{1, 4},   {3, 4},  {4, 4},   {5, 5},   {63, 63},        {64, 64},
               {65, 64}, {-1, 4}, {-64, 4}, {16, 16}, {INT32_MAX, 64}, {INT32_MIN, 4}};
  for (const auto& [count, held] : cases) {
    const auto with = [](int32_t heaps) {
      return Configured([heaps](MemorySettings* s) { s->threadHeaps = heaps; });
    };
    EXPECT_EQ(Validated(with(count)), with(held)) << count;
  }
}

struct SizeCase {
  uint32_t bytes;
  uint32_t held;
};

TEST(MemorySettingsRange, OfAHeapIsHalfAMebibyteToSixteen) {
  for (const auto& [bytes, held] : {SizeCase{0, 0x80000},
                                    {1, 0x80000},
                                    {0x7FFFF, 0x80000},
                                    {0x80000, 0x80000},
                                    {0x80001, 0x80001},
                                    {0xFFFFFF, 0xFFFFFF},
                                    {0x1000000, 0x1000000},
                                    {0x1000001, 0x1000000},
                                    {0x80000000, 0x1000000},
                                    {UINT32_MAX, 0x1000000}}) {
    const auto with = [](uint32_t size) {
      return Configured([size](MemorySettings* s) { s->heapBytes = size; });
    };
    EXPECT_EQ(Validated(with(bytes)), with(held)) << bytes;
  }
}

TEST(MemorySettingsRange, OfAShortHeapIs320KibibytesToSixteenMebibytes) {
  for (const auto& [bytes, held] : {SizeCase{0, 0x50000},
                                    {0x4FFFF, 0x50000},
                                    {0x50000, 0x50000},
                                    {0x50001, 0x50001},
                                    {0xFFFFFF, 0xFFFFFF},
                                    {0x1000000, 0x1000000},
                                    {0x1000001, 0x1000000},
                                    {0x80000000, 0x1000000},
                                    {UINT32_MAX, 0x1000000}}) {
    const auto with = [](uint32_t size, bool on) {
      return Configured([size, on](MemorySettings* s) {
        s->shortHeapBytes = size;
        s->shortHeaps = on;
      });
    };
    EXPECT_EQ(Validated(with(bytes, true)), with(held, true)) << bytes;
    EXPECT_EQ(Validated(with(bytes, false)), with(bytes, false)) << "short heaps are off";
  }
}

TEST(MemorySettingsRange, OfTheLargestBlockIsUpToAQuarterOfAMebibyte) {
  for (const auto& [bytes, held] : {SizeCase{0, 0},
                                    {1, 1},
                                    {0x3FFFF, 0x3FFFF},
                                    {0x40000, 0x40000},
                                    {0x40001, 0x40000},
                                    {0x80000000, 0x40000},
                                    {UINT32_MAX, 0x40000}}) {
    const auto with = [](uint32_t size) {
      return Configured([size](MemorySettings* s) { s->largestBlockBytes = size; });
    };
    EXPECT_EQ(Validated(with(bytes)), with(held)) << bytes;
  }
}

TEST(MemorySettingsRange, DoesNotLimitTheOtherSettings) {
  for (const int32_t count : {INT32_MIN, -1, 0, INT32_MAX}) {
    const MemorySettings settings = Configured([count](MemorySettings* s) {
      s->heapBudget = count;
      s->shortPoolMost = count;
      s->shortPoolDrainedAbove = count;
      s->blockStatistics = true;
      s->memoryControl = false;
    });
    EXPECT_EQ(Validated(settings), settings);
  }
}

TEST(MemorySettingsRange, DoesNotApplyInPlainMode) {
  for (const bool control : {false, true}) {
    MemorySettings settings = Defaults([control](MemorySettings* s) {
      s->memoryControl = control;
      s->heapBytes = 1;
      s->shortHeapBytes = 2;
      s->largestBlockBytes = UINT32_MAX;
    });
    const MemorySettings validated = Validated(settings);
    settings.shortHeaps = false;
    EXPECT_EQ(validated, settings);
  }
}

// ---- The limit ----

TEST(MemoryLimit, BelowTenMebibytesSelectsPlainMode) {
  for (const uint64_t limit : {uint64_t{1}, 5 * kMiB, 10 * kMiB - 1}) {
    for (const int32_t heaps : {0, 4, 16, -1}) {
      MemorySettings settings = Configured([&](MemorySettings* s) {
        s->limitBytes = limit;
        s->threadHeaps = heaps;
        s->heapBytes = 1;
      });
      const MemorySettings validated = Validated(
          settings, "Memory Limit is " + std::to_string(limit) + ", Default is  10485760");
      settings.threadHeaps = 0;
      settings.memoryControl = false;
      settings.shortHeaps = false;
      settings.limitRejected = true;
      EXPECT_EQ(validated, settings) << limit;
    }
  }
}

TEST(MemoryLimit, IsAcceptedFromTenMebibytesOn) {
  for (const uint64_t limit : {uint64_t{0}, 10 * kMiB, 10 * kMiB + 1, uint64_t{1} << 32,
                               (uint64_t{1} << 32) + 1, UINT64_MAX}) {
    const MemorySettings settings = Configured([&](MemorySettings* s) { s->limitBytes = limit; });
    EXPECT_EQ(Validated(settings), settings) << limit;
  }
}

TEST(MemoryLimit, OfFiveMebibytesInAFileIsReported) {
  MemorySettings settings = Parse("memorylimit 5M").settings;
  settings = Validated(settings, "Memory Limit is 5242880, Default is  10485760");
  EXPECT_TRUE(settings.limitRejected);
  EXPECT_EQ(settings.threadHeaps, 0);
}

TEST(MemorySettingsRange, ClampsOversizedNumbers) {
  EXPECT_EQ(Validated(Configured([](MemorySettings* s) {
              s->heapBytes = Parse("heapsize 1G").settings.heapBytes;
            })).heapBytes,
            0x1000000u);
  EXPECT_EQ(Validated(Configured([](MemorySettings* s) {
              s->heapBytes = Parse("heapsize 2048G").settings.heapBytes;
            })).heapBytes,
            0x80000u);
}

// ---- Listing ----

std::string Listed(uint64_t limitBytes) {
  return PrintedBy([limitBytes] {
    kiv::ListMemoryConfiguration(
        Configured([limitBytes](MemorySettings* s) { s->limitBytes = limitBytes; }));
  });
}

TEST(MemoryListing, ShowsTheLimitInKibibytes) {
  EXPECT_EQ(Listed(10 * kMiB),
            "\nMemory configuration:\n\n   Memory limit                 : 10240K\n");
  EXPECT_EQ(Listed(10 * kMiB + 1023),
            "\nMemory configuration:\n\n   Memory limit                 : 10240K\n");
  EXPECT_EQ(Listed(uint64_t{1} << 32),
            "\nMemory configuration:\n\n   Memory limit                 : 4194304K\n");
  EXPECT_EQ(Listed(0), "\nMemory configuration:\n\n   Memory limit                 : Undefined\n");
}

// The listing shows the low 32 bits of the number of KiB as a signed number.
TEST(MemoryListing, WrapsAtALimitOfTwoTebibytes) {
  const std::string lead = "\nMemory configuration:\n\n   Memory limit                 : ";
  EXPECT_EQ(Listed((uint64_t{1} << 41) - 1), lead + "2147483647K\n");
  EXPECT_EQ(Listed(uint64_t{1} << 41), lead + "-2147483648K\n");
  EXPECT_EQ(Listed(uint64_t{1} << 42), lead + "0K\n");
  EXPECT_EQ(Listed(UINT64_MAX), lead + "-1K\n");
}

// ---- Finding the file ----

void SetDirectory(const std::string& directory) {
#ifdef _WIN32
  ASSERT_EQ(_putenv_s("MOLTAPATH", directory.c_str()), 0);
#else
  ASSERT_EQ(setenv("MOLTAPATH", directory.c_str(), 1), 0);
#endif
}

// Makes a product directory with an empty folder for the file.
class MemoryFile : public testing::Test {
 protected:
  MemoryFile() {
    folder_.Make("bin");
    SetDirectory(folder_.Path());
  }

  // Reads the file into the default settings.
  MemorySettings Read(const char* suffix, bool force, const std::string& printed = "") {
    MemorySettings settings = kiv::DefaultMemorySettings();
    EXPECT_EQ(PrintedBy([&] { kiv::ReadMemoryConfiguration(suffix, force, &settings); }), printed);
    return settings;
  }

  TemporaryFolder folder_;
};

TEST_F(MemoryFile, IfMissingSelectsPlainMode) {
  EXPECT_EQ(Read("cells", false), kiv::DefaultMemorySettings());
  EXPECT_EQ(Read("", false), kiv::DefaultMemorySettings());
}

TEST_F(MemoryFile, IfMissingAndForcedSelectsTheDefaults) {
  EXPECT_EQ(Read("cells", true), Configured([](MemorySettings*) {}));
}

TEST_F(MemoryFile, IfEmptySelectsTheDefaults) {
  folder_.Write("bin/config.mem", "");
  EXPECT_EQ(Read("cells", false), Configured([](MemorySettings*) {}));
  EXPECT_EQ(Read("cells", true), Configured([](MemorySettings*) {}));
}

TEST_F(MemoryFile, WithTheSuffixIsPreferred) {
  folder_.Write("bin/config.mem", "numheaps 5");
  folder_.Write("bin/config.mem.cells", "numheaps 6");
  const auto with = [](int32_t count) {
    return Configured([count](MemorySettings* s) { s->heapBudget = count; });
  };
  EXPECT_EQ(Read("cells", false), with(6));
  EXPECT_EQ(Read("other", false), with(5));
  EXPECT_EQ(Read("", false), with(5));
  folder_.Remove("bin/config.mem");
  EXPECT_EQ(Read("cells", false), with(6));
  EXPECT_EQ(Read("other", false), kiv::DefaultMemorySettings());
  EXPECT_EQ(Read("", false), kiv::DefaultMemorySettings());
}

TEST_F(MemoryFile, IsReadFromTheFolderBinOnly) {
  folder_.Write("config.mem", "numheaps 5");
  folder_.Write("config.mem.cells", "numheaps 5");
  EXPECT_EQ(Read("cells", false), kiv::DefaultMemorySettings());
}

TEST_F(MemoryFile, IsFoundWhetherTheDirectoryEndsInASeparatorOrNot) {
  folder_.Write("bin/config.mem", "numheaps 5");
  std::string directory = folder_.Path();
  while (directory.back() == '/' || directory.back() == '\\') directory.pop_back();
  SetDirectory(directory);
  EXPECT_EQ(Read("cells", false).heapBudget, 5);
#ifdef _WIN32
  SetDirectory(directory + "\\");
  EXPECT_EQ(Read("cells", false).heapBudget, 5);
#endif
  SetDirectory(directory + "/");
  EXPECT_EQ(Read("cells", false).heapBudget, 5);
}

TEST_F(MemoryFile, SelectsHeapsAndMemoryControlBeforeItsFirstWord) {
  folder_.Write("bin/config.mem", "nomemorycontrol numthreadheaps 0");
  EXPECT_EQ(Read("cells", false), kiv::DefaultMemorySettings());
  EXPECT_EQ(Read("cells", true), kiv::DefaultMemorySettings());
  folder_.Write("bin/config.mem", "numthreadheaps 0");
  EXPECT_EQ(Read("cells", false), Defaults([](MemorySettings* s) { s->memoryControl = true; }))
      << "plain mode with memory control";
}

TEST_F(MemoryFile, OverwritesWhatWasSetBefore) {
  folder_.Write("bin/config.mem", "heapsize 1M");
  MemorySettings settings = Defaults([](MemorySettings* s) {
    s->threadHeaps = 33;
    s->heapBytes = 1;
    s->blockStatistics = true;
  });
  kiv::ReadMemoryConfiguration("cells", false, &settings);
  EXPECT_EQ(settings, Configured([](MemorySettings* s) {
              s->heapBytes = 1048576;
              s->blockStatistics = true;
            }));
}

TEST_F(MemoryFile, IsReportedIfItHasErrors) {
  folder_.Write("bin/config.mem", "budget\nmallocmemoryinit 12\nnumheaps 5\nNUMHEAPS 1T\n");
  EXPECT_EQ(Read("cells", false,
                 "\nUnknown keyword [budget] in the memory configuration file\n"
                 "\nWrong keyword [12] in the memory configuration file after keyword "
                 "[freememoryinit]\n"
                 "\nWrong keyword [1T] in the memory configuration file after keyword "
                 "[numheaps]\n"),
            Configured([](MemorySettings* s) { s->heapBudget = 5; }));
}

TEST_F(MemoryFile, MayHaveTheLineEndsOfItsPlatform) {
  folder_.Write("bin/config.mem", "numheaps 5\r\nshortmemoryoff\r\n");
#ifdef _WIN32
  EXPECT_EQ(Read("cells", false), Configured([](MemorySettings* s) {
              s->heapBudget = 5;
              s->shortHeaps = false;
            }));
#else
  EXPECT_EQ(Read("cells", false,
                 "\nWrong keyword [5\r] in the memory configuration file after keyword [numheaps]\n"
                 "\nUnknown keyword [shortmemoryoff\r] in the memory configuration file\n"),
            Configured([](MemorySettings*) {}));
#endif
}

}  // namespace
