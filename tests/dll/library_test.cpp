// Loading and unloading. This program does not link the library; it loads and unloads the library
// by hand, with the utility library in the same folder.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "dll/loaded_library.h"
#include "kivsdu/kivsdu.h"
#include "kivsdu_version.h"
#include "kivutlu/kivutlu.h"

namespace {

using kiv::test::IsLoaded;
using kiv::test::kLibraryFile;
using kiv::test::kUtilityFile;
using kiv::test::LoadedLibrary;

using InitModule = int32_t (*)(void*, const AdModuleDescriptor*, void*);
using TermModule = void (*)(void*);

class LibraryTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(utility_.handle(), nullptr);
    modules_ = utility_.Find<AdModule*>("adModules");
    init_ = utility_.Find<InitModule>("adInitMod");
    term_ = utility_.Find<TermModule>("adTermModLib");
    ASSERT_NE(modules_, nullptr);
  }

  const AdModule* EntryOf(const void* handle) const {
    for (int i = 0; i < AD_MODULES_MAX; ++i) {
      if (modules_[i].handle == handle) return &modules_[i];
    }
    return nullptr;
  }

  LoadedLibrary utility_{kUtilityFile};
  AdModule* modules_ = nullptr;
  InitModule init_ = nullptr;
  TermModule term_ = nullptr;
};

TEST_F(LibraryTest, RegistersWhenLoadedAndUnregistersWhenUnloaded) {
  LoadedLibrary library(kLibraryFile);
  void* const handle = library.handle();
  ASSERT_NE(handle, nullptr);
  const AdModule* entry = EntryOf(handle);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->descriptor.callback, nullptr);
  EXPECT_EQ(entry->descriptor.version, KIVSDU_VERSION_WORD);
  EXPECT_EQ(entry->descriptor.zero, 0u);
  EXPECT_STREQ(entry->descriptor.banner,
               std::string(KIVSDU_BANNER).substr(0, AD_MODULE_BANNER_MAX).c_str());
  EXPECT_NE(std::strstr(entry->descriptor.banner, KIVSDU_VERSION_TEXT), nullptr);
  EXPECT_NE(std::strstr(entry->descriptor.banner, KIVSDU_RUNTIME), nullptr);

  library.Unload();
  EXPECT_EQ(EntryOf(handle), nullptr);
}

TEST_F(LibraryTest, LoadsAndUnloadsManyTimes) {
  for (int round = 0; round < 100; ++round) {
    LoadedLibrary library(kLibraryFile);
    void* const handle = library.handle();
    ASSERT_NE(EntryOf(handle), nullptr);
    library.Unload();
    ASSERT_EQ(EntryOf(handle), nullptr);
    ASSERT_FALSE(IsLoaded(kLibraryFile));
  }
}

TEST_F(LibraryTest, LoadsEvenIfItsRegistrationIsRefused) {
  AdModuleDescriptor descriptor = {};
  unsigned char output[AD_MODULE_OUTPUT_BYTES] = {};
  char names[AD_MODULES_MAX];
  for (char& name : names) ASSERT_EQ(init_(&name, &descriptor, output), 0);
  char one_more;
  EXPECT_EQ(init_(&one_more, &descriptor, output), 1);

  LoadedLibrary library(kLibraryFile);
  ASSERT_NE(library.handle(), nullptr);
  EXPECT_EQ(EntryOf(library.handle()), nullptr);
  EXPECT_NE(library.Find<void*>("KivSdInit"), nullptr);
  library.Unload();
  for (char& name : names) term_(&name);
  EXPECT_EQ(modules_[0].handle, nullptr);
}

// Thread attach and detach notices do nothing.
TEST_F(LibraryTest, StaysRegisteredAcrossThreads) {
  LoadedLibrary library(kLibraryFile);
  std::thread([] {}).join();
  EXPECT_NE(EntryOf(library.handle()), nullptr);
}

// Allocates and frees through the calling thread's cache. Returns whether a freed block came back.
bool ReusesABlockOfTheThreadCache(const LoadedLibrary& library) {
  const auto allocate = library.Find<decltype(&adMalloc)>("adMalloc");
  const auto free = library.Find<decltype(&adFree)>("adFree");
  library.Find<decltype(&adCreateThreadAlloc)>("adCreateThreadAlloc")();
  void* first = nullptr;
  void* between = nullptr;
  void* second = nullptr;
  allocate(nullptr, 100, &first, nullptr, 0);
  allocate(nullptr, 100, &between, nullptr, 0);
  free(first, nullptr, 0);
  allocate(nullptr, 100, &second, nullptr, 0);
  free(between, nullptr, 0);
  free(second, nullptr, 0);
  library.Find<decltype(&adDestroyThreadAlloc)>("adDestroyThreadAlloc")();
  return first != nullptr && first == second;
}

// Waits until another thread sets it.
class Flag {
 public:
  void Set() { set_ = true; }
  void Await() const {
    while (!set_) std::this_thread::yield();
  }

 private:
  std::atomic<bool> set_{false};
};

TEST_F(LibraryTest, ServesThreadsThatStartedBeforeItWasLoaded) {
  constexpr size_t kThreads = 3;
  std::unique_ptr<LoadedLibrary> library;
  Flag loaded;
  std::array<Flag, kThreads> started;
  std::array<bool, kThreads> served = {};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      started[i].Set();
      loaded.Await();
      served[i] = ReusesABlockOfTheThreadCache(*library);
    });
    started[i].Await();
  }
  library = std::make_unique<LoadedLibrary>(kLibraryFile);
  library->Find<decltype(&KivSdSetMemoryManager)>("KivSdSetMemoryManager")(1);
  loaded.Set();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(served, (std::array<bool, kThreads>{true, true, true}));
}

// The thread's end must not call the library, which is gone.
TEST_F(LibraryTest, UnloadsBeforeAThreadThatUsedItEnds) {
  LoadedLibrary library(kLibraryFile);
  Flag used;
  Flag unloaded;
  std::thread user([&] {
    ReusesABlockOfTheThreadCache(library);
    uint32_t id = 0;
    library.Find<decltype(&KivSdThreadIdGet)>("KivSdThreadIdGet")(nullptr, &id);
    KivHandle thread = nullptr;
    library.Find<decltype(&KivSdThreadHandleGet)>("KivSdThreadHandleGet")(nullptr, &thread);
    used.Set();
    unloaded.Await();
  });
  used.Await();
  library.Unload();
  EXPECT_FALSE(IsLoaded(kLibraryFile));
  unloaded.Set();
  user.join();
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
