// What the library gives back on Linux when it is unloaded: the kernel's service for transfers in the
// background, with its descriptors, and the key for each thread's message of the loader.
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>

#include "dll/loaded_library.h"
#include "kivsdu/kivsdu.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::kLibraryFile;
using kiv::test::LoadedLibrary;
using kiv::test::TemporaryFolder;

constexpr uint32_t kReadAndWrite = 0xC0000000;
constexpr uint32_t kShareAll = 7;
constexpr uint32_t kOpenAlways = 4;
constexpr uint32_t kOverlapped = 0x40000000;

size_t OpenDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// The functions of a loaded library that a transfer in the background takes.
struct Transfers {
  explicit Transfers(const LoadedLibrary& library)
      : open(library.Find<decltype(open)>("KivSdDirectIOFileOpen")),
        write(library.Find<decltype(write)>("KivSdDirectIOFileWrite")),
        wait(library.Find<decltype(wait)>("KivSdDirectIOWait")),
        forget(library.Find<decltype(forget)>("KivSdDirectIONoWaitCbsTerm")),
        close(library.Find<decltype(close)>("KivSdDirectIOFileClose")) {}

  decltype(&KivSdDirectIOFileOpen) open;
  decltype(&KivSdDirectIOFileWrite) write;
  decltype(&KivSdDirectIOWait) wait;
  decltype(&KivSdDirectIONoWaitCbsTerm) forget;
  decltype(&KivSdDirectIOFileClose) close;
};

struct alignas(KIV_PAGE_UNIT) Block {
  unsigned char bytes[KIV_PAGE_UNIT];
};

// Writes a block in the background.
void WriteBlock(const Transfers& transfers, uint32_t file) {
  static Block block;
  KivSdNoWaitCb record = {};
  uint32_t blocks = 0;
  transfers.write(nullptr, file, 0, &block, 1, &record, &blocks);
  EXPECT_EQ(transfers.wait(nullptr, file, &record, &blocks), KIV_ST_OK);
  EXPECT_EQ(blocks, 1u);
  EXPECT_EQ(transfers.forget(nullptr, &record, 1), KIV_ST_OK);
}

// Loads the library, writes a block to a file, and unloads the library.
void WriteOnce(const char* path) {
  const LoadedLibrary library(kLibraryFile);
  const Transfers transfers(library);
  uint32_t file = 0;
  ASSERT_EQ(transfers.open(nullptr, path, kReadAndWrite, kShareAll, kOpenAlways, nullptr,
                           kOverlapped, &file),
            KIV_ST_OK);
  WriteBlock(transfers, file);
  EXPECT_EQ(transfers.close(nullptr, file), KIV_ST_OK);
}

TEST(Unload, ClosesTheDescriptorsOfTransfersInTheBackground) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("blocks");
  const size_t before = OpenDescriptors();
  for (int round = 0; round < 3; ++round) WriteOnce(path.c_str());
  EXPECT_EQ(OpenDescriptors(), before);
}

// A process has few keys; each load takes one for the message of a failed load of a module.
TEST(Unload, GivesBackTheKeyOfTheLoadersMessage) {
  for (int round = 0; round <= PTHREAD_KEYS_MAX; ++round) {
    const LoadedLibrary library(kLibraryFile);
    const auto load = library.Find<decltype(&KivSdModuleLoad)>("KivSdModuleLoad");
    const auto message =
        library.Find<decltype(&KivSdModuleGetErrorMessage)>("KivSdModuleGetErrorMessage");
    KivSdContext ctx = {};
    KivHandle module = nullptr;
    ASSERT_EQ(load(&ctx, "/missing/module.so", &module, 0), KIV_ST_MODULE_LOAD);
    ASSERT_NE(std::string(message(&ctx)).find("cannot open shared object"), std::string::npos)
        << "round " << round << ": " << message(&ctx);
  }
}

}  // namespace
