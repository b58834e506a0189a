// The shared object's image: what it needs, and its properties.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "dll/lnx/elf_image.h"
#include "dll/loaded_library.h"
#include "kivsdu_version.h"

namespace {

using kiv::test::DynamicSymbol;
using kiv::test::ElfImage;

// Debian 12's C library.
constexpr int kNewestMinor = 36;

// Each host's thread pays for these bytes, and the loader has few of them for libraries that are
// loaded late.
constexpr uint64_t kMaxThreadLocalBytes = 128;

const ElfImage& Image() {
  static const ElfImage image(kiv::test::PathBesideProgram(kiv::test::kLibraryFile));
  return image;
}

const Elf64_Phdr* SegmentOf(uint32_t type) {
  for (const Elf64_Phdr& segment : Image().segments()) {
    if (segment.p_type == type) return &segment;
  }
  return nullptr;
}

TEST(Image, HasTheMajorVersionInItsName) {
  const std::string name = "libkivsdu.so." + std::to_string(KIVSDU_VERSION_WORD >> 8);
  EXPECT_EQ(Image().Texts(DT_SONAME), std::vector<std::string>{name});
}

TEST(Image, NeedsOnlyTheCLibraryAndTheUtilityLibrary) {
  const std::vector<std::string> list = Image().Texts(DT_NEEDED);
  std::set<std::string> needed(list.begin(), list.end());
  needed.erase("libm.so.6");
  EXPECT_EQ(needed, (std::set<std::string>{"libc.so.6", "libkivutlu.so"}));
}

TEST(Image, FindsTheUtilityLibraryInItsOwnFolder) {
  EXPECT_EQ(Image().Texts(DT_RUNPATH), std::vector<std::string>{"$ORIGIN"});
  EXPECT_TRUE(Image().Texts(DT_RPATH).empty());
}

TEST(Image, TakesOnlyTheRegistrationFromTheUtilityLibrary) {
  std::set<std::string> unversioned;
  for (const DynamicSymbol& symbol : Image().symbols()) {
    if (!symbol.defined && symbol.binding != STB_WEAK && symbol.version.empty()) {
      unversioned.insert(symbol.name);
    }
  }
  EXPECT_EQ(unversioned, (std::set<std::string>{"adInitMod", "adTermModLib"}));
}

TEST(Image, RunsWithDebian12) {
  for (const DynamicSymbol& symbol : Image().symbols()) {
    if (symbol.version.empty()) continue;
    int major = 0;
    int minor = 0;
    ASSERT_GE(std::sscanf(symbol.version.c_str(), "GLIBC_%d.%d", &major, &minor), 2)
        << symbol.name << " " << symbol.version;
    EXPECT_EQ(major, 2) << symbol.name;
    EXPECT_LE(minor, kNewestMinor) << symbol.name;
  }
}

TEST(Image, TakesAllocationFromTheHostsRuntime) {
  std::set<std::string> names;
  for (const DynamicSymbol& symbol : Image().symbols()) {
    if (!symbol.defined) names.insert(symbol.name);
  }
  for (const char* name : {"free", "malloc", "realloc", "sprintf", "__errno_location"}) {
    EXPECT_EQ(names.count(name), 1u) << name;
  }
}

// The loader never unloads a library that has a unique symbol, or that says so.
TEST(Image, CanBeUnloaded) {
  for (const DynamicSymbol& symbol : Image().symbols()) {
    EXPECT_NE(symbol.binding, STB_GNU_UNIQUE) << symbol.name;
  }
  EXPECT_EQ(Image().Value(DT_FLAGS_1).value_or(0) & DF_1_NODELETE, 0u);
}

TEST(Image, ExportsOneVariable) {
  std::vector<std::string> variables;
  for (const DynamicSymbol& symbol : Image().symbols()) {
    if (symbol.defined && symbol.type != STT_FUNC) variables.push_back(symbol.name);
  }
  EXPECT_EQ(variables, std::vector<std::string>{"KIV_SDSYNC_BUSYSPIN_UPPERLIMIT"});
}

TEST(Image, IsRelocatedAtOnceAndProtectedAfterwards) {
  EXPECT_NE(Image().Value(DT_FLAGS_1).value_or(0) & DF_1_NOW, 0u);
  EXPECT_NE(SegmentOf(PT_GNU_RELRO), nullptr);
  EXPECT_FALSE(Image().Value(DT_TEXTREL).has_value());
  EXPECT_EQ(Image().Value(DT_FLAGS).value_or(0) & DF_TEXTREL, 0u);
}

TEST(Image, DoesNotExecuteData) {
  for (const Elf64_Phdr& segment : Image().segments()) {
    EXPECT_NE(segment.p_flags & (PF_W | PF_X), static_cast<uint32_t>(PF_W | PF_X))
        << "segment of type " << segment.p_type;
  }
  const Elf64_Phdr* stack = SegmentOf(PT_GNU_STACK);
  ASSERT_NE(stack, nullptr);
  EXPECT_EQ(stack->p_flags & PF_X, 0u);
}

TEST(Image, HasFewThreadLocalBytes) {
  const Elf64_Phdr* local = SegmentOf(PT_TLS);
  if (local != nullptr) EXPECT_LE(local->p_memsz, kMaxThreadLocalBytes);
}

TEST(Image, KeepsItsDebugSymbolsInAFileThatItNames) {
  EXPECT_TRUE(Image().HasSection(".gnu_debuglink"));
  EXPECT_TRUE(Image().HasSection(".note.gnu.build-id"));
  EXPECT_FALSE(Image().HasSection(".debug_info"));
  EXPECT_FALSE(Image().HasSection(".symtab"));
}

}  // namespace
