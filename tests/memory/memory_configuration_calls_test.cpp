// The calls of the C runtime by the reader of the memory configuration file: the names that it
// opens, in order, and its behaviour without memory.
//
// The linker redirects the reader's calls to this file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/memory_settings.h"

namespace {

using kiv::MemorySettings;
using kiv::test::Defaults;
using kiv::test::Parsed;

bool watched = false;             // true while the reader runs
std::vector<std::string> opened;  // names and modes
std::string present;              // name of the only existing file
std::string content;              // its content
int filesOpen = 0;
int allocationsLeft = -1;  // before memory runs out; negative: it never does

bool MayAllocate() {
  if (!watched || allocationsLeft < 0) return true;
  if (allocationsLeft == 0) return false;
  --allocationsLeft;
  return true;
}

// Runs the reader with memory for this number of allocations.
template <typename Call>
void Watch(int allocations, Call call) {
  allocationsLeft = allocations;
  watched = true;
  call();
  watched = false;
}

}  // namespace

extern "C" {

std::FILE* __real_fopen(const char* name, const char* mode);
std::FILE* __wrap_fopen(const char* name, const char* mode);
int __real_fclose(std::FILE* file);
int __wrap_fclose(std::FILE* file);
void* __real_malloc(size_t sizeBytes);
void* __wrap_malloc(size_t sizeBytes);
void* __real_realloc(void* block, size_t sizeBytes);
void* __wrap_realloc(void* block, size_t sizeBytes);

std::FILE* __wrap_fopen(const char* name, const char* mode) {
  if (!watched) return __real_fopen(name, mode);
  opened.push_back(std::string(name) + " " + mode);
  if (name != present) return nullptr;
  ++filesOpen;
  return fmemopen(content.data(), content.size(), "r");
}

int __wrap_fclose(std::FILE* file) {
  if (watched) --filesOpen;
  return __real_fclose(file);
}

// A compiler may replace a reallocation of null by a call of malloc.
void* __wrap_malloc(size_t sizeBytes) { return MayAllocate() ? __real_malloc(sizeBytes) : nullptr; }

void* __wrap_realloc(void* block, size_t sizeBytes) {
  return MayAllocate() ? __real_realloc(block, sizeBytes) : nullptr;
}

}  // extern "C"

namespace {

class ConfigurationCalls : public testing::Test {
 protected:
  ConfigurationCalls() {
    opened.clear();
    present.clear();
    content = "numheaps 5";
    filesOpen = 0;
    unsetenv("MOLTAPATH");
  }
  ~ConfigurationCalls() override { EXPECT_EQ(filesOpen, 0) << "the file is closed again"; }

  static MemorySettings Read(const char* suffix, bool force, int allocations = -1) {
    MemorySettings settings = kiv::DefaultMemorySettings();
    Watch(allocations, [&] { kiv::ReadMemoryConfiguration(suffix, force, &settings); });
    return settings;
  }

  static void ExpectOpened(const std::string& base, const std::string& suffix) {
    opened.clear();
    Read(suffix.c_str(), false);
    EXPECT_EQ(opened, (std::vector{base + "." + suffix + " r", base + " r"}));
  }
};

TEST_F(ConfigurationCalls, OpenTheNameWithTheSuffixAndThenTheOneWithout) {
  ExpectOpened("/MOLTA/bin/config.mem", "cells");
  ExpectOpened("/MOLTA/bin/config.mem", "two.parts");
  ExpectOpened("/MOLTA/bin/config.mem", "");
}

TEST_F(ConfigurationCalls, OpenBelowTheDirectoryOfTheEnvironment) {
  setenv("MOLTAPATH", "/srv/molta", 1);
  ExpectOpened("/srv/molta/bin/config.mem", "cells");
  setenv("MOLTAPATH", "/srv/molta/", 1);
  ExpectOpened("/srv/molta/bin/config.mem", "cells");
  setenv("MOLTAPATH", "srv//", 1);
  ExpectOpened("srv//bin/config.mem", "cells");
  setenv("MOLTAPATH", "x", 1);
  ExpectOpened("x/bin/config.mem", "cells");
  setenv("MOLTAPATH", "\\srv\\", 1);
  ExpectOpened("\\srv\\/bin/config.mem", "cells");
  setenv("MOLTAPATH", "", 1);
  ExpectOpened("/bin/config.mem", "cells");
}

TEST_F(ConfigurationCalls, OpenNamesOfAnyLength) {
  const std::string folder = "/" + std::string(5000, 'd');
  setenv("MOLTAPATH", folder.c_str(), 1);
  ExpectOpened(folder + "/bin/config.mem", "cells");
  ExpectOpened(folder + "/bin/config.mem", std::string(70000, 's'));
}

TEST_F(ConfigurationCalls, OpenNoSecondFile) {
  for (const bool force : {false, true}) {
    opened.clear();
    present = "/MOLTA/bin/config.mem.cells";
    EXPECT_EQ(Read("cells", force).heapBudget, 5);
    EXPECT_EQ(opened, (std::vector<std::string>{"/MOLTA/bin/config.mem.cells r"}));
    present = "/MOLTA/bin/config.mem";
    EXPECT_EQ(Read("cells", force).heapBudget, 5);
  }
}

// ---- Without memory ----

const MemorySettings kForced = Defaults([](MemorySettings* s) {
  s->threadHeaps = 16;
  s->memoryControl = true;
});

TEST_F(ConfigurationCalls, WithoutMemoryForANameFindNoFile) {
  present = "/MOLTA/bin/config.mem";
  EXPECT_EQ(Read("cells", false, 0), kiv::DefaultMemorySettings());
  EXPECT_EQ(Read("cells", true, 0), kForced);
  EXPECT_EQ(opened, std::vector<std::string>{});
}

// Texts start with 64 bytes, terminator included, and grow from there.
TEST_F(ConfigurationCalls, WithoutMemoryForTheWholeNameOpenTheNameThatFits) {
  for (size_t length = 30; length <= 63; ++length) {  // with 63 there is no room for a separator
    const std::string directory(length, 'd');
    const std::string base = directory + "/bin/config.mem";
    const std::string full = base + ".cells";
    setenv("MOLTAPATH", directory.c_str(), 1);
    present = base;
    opened.clear();
    const MemorySettings settings = Read("cells", false, 1);
    std::vector<std::string> expected;
    if (full.size() < 64) expected.push_back(full + " r");
    if (base.size() < 64) expected.push_back(base + " r");
    EXPECT_EQ(opened, expected) << length;
    // If the file is opened, there is no memory for its first word.
    EXPECT_EQ(settings, base.size() < 64 ? kForced : kiv::DefaultMemorySettings()) << length;
  }
}

Parsed ParseWith(int allocations, std::string bytes) {
  MemorySettings settings = kiv::DefaultMemorySettings();
  std::FILE* file = fmemopen(bytes.data(), bytes.size(), "r");
  const std::string printed = kiv::test::PrintedBy(
      [&] { Watch(allocations, [&] { ParseMemoryConfiguration(file, &settings); }); });
  std::fclose(file);
  return {settings, printed};
}

TEST_F(ConfigurationCalls, WithoutMemoryForAWordEndTheFile) {
  const std::string word = std::string(64, 'w');
  const std::string end = " numheaps 7 shortmemoryoff";
  const Parsed five{Defaults([](MemorySettings* s) { s->heapBudget = 5; }), ""};
  EXPECT_EQ(ParseWith(0, "numheaps 5"), (Parsed{kiv::DefaultMemorySettings(), ""}));
  EXPECT_EQ(ParseWith(1, "numheaps 5"), five);
  EXPECT_EQ(ParseWith(1, "numheaps 5 " + word + end), five);
  EXPECT_EQ(ParseWith(1, "numheaps 5 heapsize " + word + end), five);
  EXPECT_EQ(ParseWith(2, "numheaps 5 " + word + word + end), five);
  EXPECT_EQ(ParseWith(2, "numheaps 5 " + word),
            (Parsed{five.settings,
                    "\nUnknown keyword [" + word + "] in the memory configuration file\n"}));
}

// Words of 4 KiB take seven allocations, not one for each character.
TEST_F(ConfigurationCalls, DoubleTheRoomOfAGrowingWord) {
  const std::string word(4095, 'w');
  EXPECT_EQ(ParseWith(7, word).printed,
            "\nUnknown keyword [" + word + "] in the memory configuration file\n");
  EXPECT_EQ(ParseWith(6, word).printed, "");
  EXPECT_EQ(ParseWith(7, word + " " + word).printed.size(), 2 * (word.size() + 53)) << "kept";
}

}  // namespace
