// Loading and unloading. This program does not link the library; it loads and unloads the library
// by hand, with the utility library in the same folder.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <string>

#include "kivsdu_version.h"
#include "kivutlu/kivutlu.h"

namespace {

using InitModule = int32_t (*)(void*, const AdModuleDescriptor*, void*);
using TermModule = void (*)(void*);

template <typename Function>
Function Find(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

class LibraryTest : public testing::Test {
 protected:
  void SetUp() override {
    utility_ = LoadLibraryA("kivutlu.dll");
    ASSERT_NE(utility_, nullptr);
    modules_ = Find<AdModule*>(utility_, "adModules");
    init_ = Find<InitModule>(utility_, "adInitMod");
    term_ = Find<TermModule>(utility_, "adTermModLib");
    ASSERT_NE(modules_, nullptr);
  }

  void TearDown() override { FreeLibrary(utility_); }

  const AdModule* EntryOf(const void* handle) const {
    for (int i = 0; i < AD_MODULES_MAX; ++i) {
      if (modules_[i].handle == handle) return &modules_[i];
    }
    return nullptr;
  }

  HMODULE utility_ = nullptr;
  AdModule* modules_ = nullptr;
  InitModule init_ = nullptr;
  TermModule term_ = nullptr;
};

TEST_F(LibraryTest, RegistersWhenLoadedAndUnregistersWhenUnloaded) {
  HMODULE library = LoadLibraryA("kivsdu.dll");
  ASSERT_NE(library, nullptr);
  const AdModule* entry = EntryOf(library);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->descriptor.callback, nullptr);
  EXPECT_EQ(entry->descriptor.version, KIVSDU_VERSION_WORD);
  EXPECT_EQ(entry->descriptor.zero, 0u);
  EXPECT_STREQ(entry->descriptor.banner,
               std::string(KIVSDU_BANNER).substr(0, AD_MODULE_BANNER_MAX).c_str());
  EXPECT_NE(std::strstr(entry->descriptor.banner, KIVSDU_VERSION_TEXT), nullptr);

  ASSERT_TRUE(FreeLibrary(library));
  EXPECT_EQ(EntryOf(library), nullptr);
}

TEST_F(LibraryTest, LoadsAndUnloadsManyTimes) {
  for (int round = 0; round < 50; ++round) {
    HMODULE library = LoadLibraryA("kivsdu.dll");
    ASSERT_NE(EntryOf(library), nullptr);
    ASSERT_TRUE(FreeLibrary(library));
    ASSERT_EQ(EntryOf(library), nullptr);
  }
}

TEST_F(LibraryTest, LoadsEvenIfItsRegistrationIsRefused) {
  AdModuleDescriptor descriptor = {};
  unsigned char output[AD_MODULE_OUTPUT_BYTES] = {};
  char names[AD_MODULES_MAX];
  for (char& name : names) ASSERT_EQ(init_(&name, &descriptor, output), 0);
  char one_more;
  EXPECT_EQ(init_(&one_more, &descriptor, output), 1);

  HMODULE library = LoadLibraryA("kivsdu.dll");
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(EntryOf(library), nullptr);
  EXPECT_NE(GetProcAddress(library, "KivSdInit"), nullptr);
  EXPECT_TRUE(FreeLibrary(library));
  for (char& name : names) term_(&name);
  EXPECT_EQ(modules_[0].handle, nullptr);
}

// Thread attach and detach notices do nothing.
TEST_F(LibraryTest, StaysRegisteredAcrossThreads) {
  HMODULE library = LoadLibraryA("kivsdu.dll");
  HANDLE thread = CreateThread(
      nullptr, 0, [](void*) -> DWORD { return 7; }, nullptr, 0, nullptr);
  EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
  CloseHandle(thread);
  EXPECT_NE(EntryOf(library), nullptr);
  EXPECT_TRUE(FreeLibrary(library));
}

// A thread that waits until the library is loaded and then uses its per-thread cache.
struct EarlyThread {
  HANDLE started;
  HANDLE loaded;
  HMODULE library;
  void* first;
  void* second;
};

DWORD WINAPI UseThreadCache(void* argument) {
  auto* early = static_cast<EarlyThread*>(argument);
  SetEvent(early->started);
  WaitForSingleObject(early->loaded, INFINITE);
  using Allocate = uint32_t (*)(void*, uint64_t, void**, const char*, uint32_t);
  using Free = uint32_t (*)(void*, const char*, uint32_t);
  const auto allocate = Find<Allocate>(early->library, "adMalloc");
  const auto free = Find<Free>(early->library, "adFree");
  Find<uint32_t (*)()>(early->library, "adCreateThreadAlloc")();
  allocate(nullptr, 100, &early->first, nullptr, 0);
  void* between = nullptr;
  allocate(nullptr, 100, &between, nullptr, 0);
  free(early->first, nullptr, 0);
  allocate(nullptr, 100, &early->second, nullptr, 0);
  free(between, nullptr, 0);
  free(early->second, nullptr, 0);
  Find<uint32_t (*)()>(early->library, "adDestroyThreadAlloc")();
  return 0;
}

TEST_F(LibraryTest, ServesThreadsThatStartedBeforeItWasLoaded) {
  constexpr DWORD kThreads = 3;
  EarlyThread early[kThreads] = {};
  HANDLE threads[kThreads] = {};
  for (DWORD i = 0; i < kThreads; ++i) {
    early[i].started = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    early[i].loaded = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    threads[i] = CreateThread(nullptr, 0, UseThreadCache, &early[i], 0, nullptr);
    ASSERT_EQ(WaitForSingleObject(early[i].started, INFINITE), WAIT_OBJECT_0);
  }
  HMODULE library = LoadLibraryA("kivsdu.dll");
  ASSERT_NE(library, nullptr);
  Find<void (*)(uint8_t)>(library, "KivSdSetMemoryManager")(1);
  for (DWORD i = 0; i < kThreads; ++i) {
    early[i].library = library;
    SetEvent(early[i].loaded);
    EXPECT_EQ(WaitForSingleObject(threads[i], INFINITE), WAIT_OBJECT_0);
    EXPECT_NE(early[i].first, nullptr);
    EXPECT_EQ(early[i].first, early[i].second);
    CloseHandle(threads[i]);
    CloseHandle(early[i].started);
    CloseHandle(early[i].loaded);
  }
  EXPECT_TRUE(FreeLibrary(library));
}

TEST_F(LibraryTest, UtilityLibraryRefusesMissingArguments) {
  AdModuleDescriptor descriptor = {};
  unsigned char output[AD_MODULE_OUTPUT_BYTES] = {};
  EXPECT_EQ(init_(nullptr, &descriptor, output), 1);
  EXPECT_EQ(init_(&descriptor, nullptr, output), 1);
  EXPECT_EQ(init_(&descriptor, &descriptor, nullptr), 1);
  term_(nullptr);
  term_(&descriptor);
  EXPECT_EQ(modules_[0].handle, nullptr);
}

TEST_F(LibraryTest, UtilityLibraryReplacesADescriptor) {
  AdModuleDescriptor descriptor = {nullptr, 1, 0, "first"};
  unsigned char output[AD_MODULE_OUTPUT_BYTES] = {};
  ASSERT_EQ(init_(&descriptor, &descriptor, output), 0);
  AdModuleDescriptor next = {nullptr, 2, 0, "second"};
  ASSERT_EQ(init_(&descriptor, &next, output), 0);
  EXPECT_STREQ(EntryOf(&descriptor)->descriptor.banner, "second");
  EXPECT_EQ(modules_[1].handle, nullptr);
  term_(&descriptor);
  EXPECT_EQ(EntryOf(&descriptor), nullptr);
}

}  // namespace
