// The calls of the C runtime by the reader of the memory configuration file: the names that it
// opens, in order, and its behaviour without memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "os/path.h"
#include "support/memory_settings.h"
#include "support/temporary_folder.h"
#ifdef _WIN32
#include "support/import_patch.h"
#endif

namespace {

using kiv::MemorySettings;
using kiv::test::Defaults;
using kiv::test::Parsed;

bool watched = false;             // true while the reader runs
std::vector<std::string> opened;  // names and modes
std::string present;              // name of the only existing file
std::string contentFile;          // path of a file with the content
int filesOpen = 0;
int allocationsLeft = -1;  // before memory runs out; negative: it never does

bool MayAllocate() {
  if (!watched || allocationsLeft < 0) return true;
  if (allocationsLeft == 0) return false;
  --allocationsLeft;
  return true;
}

// The runtime's functions.
struct Runtime {
  std::FILE* (*open)(const char* name, const char* mode);
  int (*close)(std::FILE* file);
  void* (*allocate)(size_t sizeBytes);
  void* (*reallocate)(void* block, size_t sizeBytes);
};
extern Runtime runtime;

// What replaces them.
std::FILE* Open(const char* name, const char* mode) {
  if (!watched) return runtime.open(name, mode);
  watched = false;  // the list below may allocate
  opened.push_back(std::string(name) + " " + mode);
  watched = true;
  if (name != present) return nullptr;
  ++filesOpen;
  return runtime.open(contentFile.c_str(), "rb");
}

int Close(std::FILE* file) {
  if (watched) --filesOpen;
  return runtime.close(file);
}

// A compiler may replace a reallocation of null by a call of malloc.
void* Allocate(size_t sizeBytes) { return MayAllocate() ? runtime.allocate(sizeBytes) : nullptr; }

void* Reallocate(void* block, size_t sizeBytes) {
  return MayAllocate() ? runtime.reallocate(block, sizeBytes) : nullptr;
}

}  // namespace

#ifdef _WIN32

namespace {

using kiv::test::ImportPatch;

Runtime runtime = {};

// Patches an import of the program, and keeps the original at once: the next patch may allocate.
class Patch {
 public:
  template <typename Function>
  Patch(const char* function, Function replacement, Function* original)
      : patch_(function, reinterpret_cast<void*>(replacement)) {
    *original = reinterpret_cast<Function>(patch_.original());
  }

 private:
  const ImportPatch patch_;
};

class Redirected {
  const Patch open_{"fopen", &Open, &runtime.open};
  const Patch close_{"fclose", &Close, &runtime.close};
  const Patch allocate_{"malloc", &Allocate, &runtime.allocate};
  const Patch reallocate_{"realloc", &Reallocate, &runtime.reallocate};
};

}  // namespace

#else

extern "C" {

std::FILE* __real_fopen(const char* name, const char* mode);
std::FILE* __wrap_fopen(const char* name, const char* mode);
int __real_fclose(std::FILE* file);
int __wrap_fclose(std::FILE* file);
void* __real_malloc(size_t sizeBytes);
void* __wrap_malloc(size_t sizeBytes);
void* __real_realloc(void* block, size_t sizeBytes);
void* __wrap_realloc(void* block, size_t sizeBytes);

std::FILE* __wrap_fopen(const char* name, const char* mode) { return Open(name, mode); }
int __wrap_fclose(std::FILE* file) { return Close(file); }
void* __wrap_malloc(size_t sizeBytes) { return Allocate(sizeBytes); }
void* __wrap_realloc(void* block, size_t sizeBytes) { return Reallocate(block, sizeBytes); }

}  // extern "C"

namespace {

Runtime runtime = {__real_fopen, __real_fclose, __real_malloc, __real_realloc};

// The linker redirects the calls.
class Redirected {
 public:
  Redirected() {}  // user-provided, so that compilers do not warn of an unused variable
};

}  // namespace

#endif

namespace {

// Runs the reader with memory for this number of allocations.
template <typename Call>
void Watch(int allocations, Call call) {
  const Redirected redirected;
  allocationsLeft = allocations;
  watched = true;
  call();
  watched = false;
}

}  // namespace

namespace {

constexpr char kSeparator = kiv::os::kPathSeparator;
constexpr char kOtherSeparator = kSeparator == '/' ? '\\' : '/';

#ifdef _WIN32
constexpr bool kMayBeEmpty = false;  // an empty value removes a variable of the environment

void SetVariable(const std::string& name, const std::string& value) {
  EXPECT_EQ(_putenv((name + "=" + value).c_str()), 0);
}

void RemoveVariable(const std::string& name) { SetVariable(name, ""); }
#else
constexpr bool kMayBeEmpty = true;

void SetVariable(const std::string& name, const std::string& value) {
  EXPECT_EQ(setenv(name.c_str(), value.c_str(), 1), 0);
}

void RemoveVariable(const std::string& name) { EXPECT_EQ(unsetenv(name.c_str()), 0); }
#endif

constexpr char kDirectoryVariable[] = "MOLTAPATH";

void SetDirectory(const std::string& path) { SetVariable(kDirectoryVariable, path); }

std::string Join(std::initializer_list<const char*> parts) {
  std::string path;
  for (const char* part : parts) path += (path.empty() ? "" : std::string(1, kSeparator)) + part;
  return path;
}

const std::string kBelow = kSeparator + Join({"bin", "config.mem"});
const std::string kDefault = kSeparator + std::string("MOLTA") + kBelow;

class ConfigurationCalls : public testing::Test {
 protected:
  ConfigurationCalls() {
    opened.clear();
    present.clear();
    folder_.Write("content", "numheaps 5");
    contentFile = folder_.Path("content");
    filesOpen = 0;
    RemoveVariable(kDirectoryVariable);
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

  const kiv::test::TemporaryFolder folder_;
};

TEST_F(ConfigurationCalls, OpenTheNameWithTheSuffixAndThenTheOneWithout) {
  ExpectOpened(kDefault, "cells");
  ExpectOpened(kDefault, "two.parts");
  ExpectOpened(kDefault, "");
}

TEST_F(ConfigurationCalls, OpenBelowTheDirectoryOfTheEnvironment) {
  SetDirectory("/srv/molta");
  ExpectOpened("/srv/molta" + kBelow, "cells");
  const std::string ended = std::string("srv") + kSeparator;
  SetDirectory(ended);
  ExpectOpened("srv" + kBelow, "cells");
  SetDirectory(ended + kSeparator);
  ExpectOpened(ended + kBelow, "cells");
  SetDirectory("x");
  ExpectOpened("x" + kBelow, "cells");
  SetDirectory(std::string("srv") + kOtherSeparator);
  ExpectOpened(std::string("srv") + kOtherSeparator + kBelow, "cells");
  SetDirectory("");
  ExpectOpened(kMayBeEmpty ? kBelow : kDefault, "cells");
}

#ifdef _WIN32  // where only another program can pass an empty variable
TEST_F(ConfigurationCalls, OpenBelowAnEmptyDirectory) {
  const kiv::test::ScriptedImport empty("getenv", {.result = reinterpret_cast<uintptr_t>("")});
  ExpectOpened(kBelow, "cells");
}
#endif

TEST_F(ConfigurationCalls, OpenNamesOfAnyLength) {
  const std::string folder = "/" + std::string(5000, 'd');
  SetDirectory(folder);
  ExpectOpened(folder + kBelow, "cells");
  ExpectOpened(folder + kBelow, std::string(70000, 's'));
}

TEST_F(ConfigurationCalls, OpenNoSecondFile) {
  SetDirectory("x");
  const std::string base = "x" + kBelow;
  for (const bool force : {false, true}) {
    opened.clear();
    present = base + ".cells";
    EXPECT_EQ(Read("cells", force).heapBudget, 5);
    EXPECT_EQ(opened, std::vector{base + ".cells r"});
    present = base;
    EXPECT_EQ(Read("cells", force).heapBudget, 5);
  }
}

// ---- Without memory ----

const MemorySettings kForced = Defaults([](MemorySettings* s) {
  s->threadHeaps = 16;
  s->memoryControl = true;
});

TEST_F(ConfigurationCalls, WithoutMemoryForANameFindNoFile) {
  SetDirectory("x");
  present = "x" + kBelow;
  EXPECT_EQ(Read("cells", false, 0), kiv::DefaultMemorySettings());
  EXPECT_EQ(Read("cells", true, 0), kForced);
  EXPECT_EQ(opened, std::vector<std::string>{});
}

// Texts start with 64 bytes, terminator included, and grow from there.
TEST_F(ConfigurationCalls, WithoutMemoryForTheWholeNameOpenTheNameThatFits) {
  for (size_t length = 30; length <= 63; ++length) {  // with 63 there is no room for a separator
    const std::string directory(length, 'd');
    const std::string base = directory + kBelow;
    const std::string full = base + ".cells";
    SetDirectory(directory);
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

Parsed ParseWith(int allocations, const std::string& bytes) {
  MemorySettings settings = kiv::DefaultMemorySettings();
  const kiv::test::TemporaryFolder folder;
  folder.Write("parsed", bytes);
  std::FILE* file = std::fopen(folder.Path("parsed").c_str(), "rb");
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
