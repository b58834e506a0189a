// Paging space and the machine's paging-file setting.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/process.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::ExpectField;
using kiv::test::Guarded;
using kiv::test::ImportPatch;

constexpr uint64_t kKiB = 1024;
constexpr uint64_t kTiB = kKiB * kKiB * kKiB * kKiB;
constexpr uint32_t kMax = 0xFFFFFFFF;
constexpr size_t kMaxCharacters = KIV_SYSTEM_PATH_MAX - 1;

// A fake machine: the paging-file setting, the paging space, and a heap that counts its blocks.
// Records the calls in order, with their sizes.
class FakeMachine {
 public:
  FakeMachine() { current_ = this; }
  ~FakeMachine() { current_ = nullptr; }
  FakeMachine(const FakeMachine&) = delete;
  FakeMachine& operator=(const FakeMachine&) = delete;

  std::string setting = std::string("C:\\pagefile.sys 0 0\0", 21);
  DWORD type = REG_MULTI_SZ;
  DWORD largestBytes = 64;  // size of the key's largest value
  LSTATUS openStatus = ERROR_SUCCESS;
  LSTATUS infoStatus = ERROR_SUCCESS;
  LSTATUS valueStatus = ERROR_SUCCESS;
  LSTATUS closeStatus = ERROR_SUCCESS;
  bool hasHeap = true;
  BOOL hasMemoryStatus = TRUE;
  uint64_t totalBytes = 128 * kKiB;
  uint64_t availableBytes = 32 * kKiB;

  // Keys and blocks that the library has not released.
  int openKeys = 0;
  int blocks = 0;

  std::vector<std::string> calls;

 private:
  static HKEY Key() { return reinterpret_cast<HKEY>(&key_); }

  static LSTATUS WINAPI Open(HKEY root, LPCSTR path, DWORD options, REGSAM access, PHKEY key) {
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    EXPECT_STREQ(path, "SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Memory Management");
    EXPECT_EQ(options, 0u);
    EXPECT_EQ(access, 0x20019u);
    current_->calls.push_back("open");
    if (current_->openStatus != ERROR_SUCCESS) return current_->openStatus;
    ++current_->openKeys;
    *key = Key();
    return ERROR_SUCCESS;
  }

  static LSTATUS WINAPI Info(HKEY key, LPSTR, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD, LPDWORD,
                             LPDWORD, LPDWORD largestBytes, LPDWORD, PFILETIME) {
    EXPECT_EQ(key, Key());
    current_->calls.push_back("info");
    *largestBytes = current_->largestBytes;  // also on failure: a caller that uses it is found
    return current_->infoStatus;
  }

  static LSTATUS WINAPI Value(HKEY key, LPCSTR name, LPDWORD, LPDWORD type, LPBYTE data,
                              LPDWORD sizeBytes) {
    EXPECT_EQ(key, Key());
    EXPECT_STREQ(name, "PagingFiles");
    current_->calls.push_back("value " + std::to_string(*sizeBytes));
    const std::string& setting = current_->setting;
    const bool fits = setting.size() <= *sizeBytes;
    *type = current_->type;
    *sizeBytes = static_cast<DWORD>(setting.size());
    if (!fits) return ERROR_MORE_DATA;
    std::memcpy(data, setting.data(), setting.size());
    return current_->valueStatus;
  }

  static LSTATUS WINAPI Close(HKEY key) {
    EXPECT_EQ(key, Key());
    current_->calls.push_back("close");
    --current_->openKeys;
    return current_->closeStatus;
  }

  static void* Allocate(size_t sizeBytes) {
    current_->calls.push_back("malloc " + std::to_string(sizeBytes));
    if (!current_->hasHeap) return nullptr;
    ++current_->blocks;
    void* block = std::malloc(sizeBytes);
    return std::memset(block, '#', sizeBytes);  // so that no terminator follows the setting
  }

  static void Free(void* block) {
    current_->calls.push_back("free");
    --current_->blocks;
    std::free(block);
  }

  static BOOL WINAPI MemoryStatus(LPMEMORYSTATUSEX status) {
    EXPECT_EQ(status->dwLength, sizeof *status);
    status->ullTotalPageFile = current_->totalBytes;
    status->ullAvailPageFile = current_->availableBytes;
    return current_->hasMemoryStatus;
  }

  static inline FakeMachine* current_ = nullptr;
  static inline int key_ = 0;  // its address serves as a handle

  ImportPatch open_{"RegOpenKeyExA", reinterpret_cast<void*>(&Open)};
  ImportPatch info_{"RegQueryInfoKeyA", reinterpret_cast<void*>(&Info)};
  ImportPatch value_{"RegQueryValueExA", reinterpret_cast<void*>(&Value)};
  ImportPatch close_{"RegCloseKey", reinterpret_cast<void*>(&Close)};
  ImportPatch malloc_{"malloc", reinterpret_cast<void*>(&Allocate)};
  ImportPatch free_{"free", reinterpret_cast<void*>(&Free)};
  ImportPatch status_{"GlobalMemoryStatusEx", reinterpret_cast<void*>(&MemoryStatus)};
};

using Calls = std::vector<std::string>;
const Calls kAllSteps = {"open", "info", "malloc 64", "value 64", "free", "close"};

// Reads the setting; checks the flags, the text, and that no key or block is left.
void ExpectSetting(FakeMachine& machine, uint32_t flags, const std::string& text) {
  Context ctx;
  Guarded<KivSdSwapInfo> info;
  CHECK_OK(ctx, KivSdSwapInfoGet(ctx, info));
  EXPECT_EQ(info->flags, flags);
  ExpectField(info->pagingFiles, text);
  EXPECT_EQ(machine.openKeys, 0);
  EXPECT_EQ(machine.blocks, 0);
}

// ---- The setting ----

TEST(PagingFiles, AreTheSettingsText) {
  FakeMachine machine;
  ExpectSetting(machine, KIV_SWAP_FOUND, "C:\\pagefile.sys 0 0");
  EXPECT_EQ(machine.calls, kAllSteps);
}

TEST(PagingFiles, AreTheFirstStringOfSeveral) {
  FakeMachine machine;
  machine.setting = std::string("C:\\one\0D:\\two\0\0", 15);
  ExpectSetting(machine, KIV_SWAP_FOUND, "C:\\one");
}

TEST(PagingFiles, AreReadWhenTheSettingFillsTheBuffer) {
  FakeMachine machine;
  machine.largestBytes = static_cast<DWORD>(machine.setting.size());
  ExpectSetting(machine, KIV_SWAP_FOUND, "C:\\pagefile.sys 0 0");
}

TEST(PagingFiles, NeedNoTerminator) {
  FakeMachine machine;
  machine.setting = "C:\\pagefile.sys";
  ExpectSetting(machine, KIV_SWAP_FOUND, "C:\\pagefile.sys");
}

TEST(PagingFiles, AreCutAtTheFullLength) {
  for (const size_t length :
       {kMaxCharacters - 1, kMaxCharacters, kMaxCharacters + 1, kMaxCharacters + 2, size_t{5000}}) {
    for (const bool terminated : {true, false}) {
      FakeMachine machine;
      machine.setting = std::string(length, 'p');
      if (terminated) machine.setting.append(2, '\0');
      machine.largestBytes = 6000;
      const std::string kept(std::min(length, kMaxCharacters), 'p');
      ExpectSetting(machine, KIV_SWAP_FOUND, kept);
    }
  }
}

TEST(PagingFiles, AreFlaggedAsEmptyWhenTheSettingIsEmpty) {
  for (const std::string& setting :
       {std::string(), std::string(1, '\0'), std::string(2, '\0'), std::string("\0D:\\two\0", 8)}) {
    FakeMachine machine;
    machine.setting = setting;
    ExpectSetting(machine, KIV_SWAP_EMPTY, "");
    EXPECT_EQ(machine.calls, kAllSteps);
  }
}

TEST(PagingFiles, CannotBeReadWithoutTheKey) {
  FakeMachine machine;
  machine.openStatus = ERROR_FILE_NOT_FOUND;
  ExpectSetting(machine, KIV_SWAP_UNREADABLE, "");
  EXPECT_EQ(machine.calls, Calls{"open"});
}

TEST(PagingFiles, CannotBeReadWithoutTheKeysLargestValueLength) {
  FakeMachine machine;
  machine.infoStatus = ERROR_ACCESS_DENIED;
  ExpectSetting(machine, KIV_SWAP_UNREADABLE, "");
  EXPECT_EQ(machine.calls, (Calls{"open", "info", "close"}));
}

TEST(PagingFiles, CannotBeReadFromAKeyWithoutData) {
  FakeMachine machine;
  machine.largestBytes = 0;
  ExpectSetting(machine, KIV_SWAP_UNREADABLE, "");
  EXPECT_EQ(machine.calls, (Calls{"open", "info", "close"}));
}

TEST(PagingFiles, CannotBeReadWithoutMemory) {
  FakeMachine machine;
  machine.hasHeap = false;
  ExpectSetting(machine, KIV_SWAP_UNREADABLE, "");
  EXPECT_EQ(machine.calls, (Calls{"open", "info", "malloc 64", "close"}));
}

TEST(PagingFiles, CannotBeReadWithoutTheValue) {
  FakeMachine machine;
  machine.valueStatus = ERROR_FILE_NOT_FOUND;
  ExpectSetting(machine, KIV_SWAP_UNREADABLE, "");
  EXPECT_EQ(machine.calls, kAllSteps);
}

TEST(PagingFiles, CannotBeReadWhenTheValueGrowsBetweenTheQueries) {
  FakeMachine machine;
  machine.setting = std::string(65, 'p');
  ExpectSetting(machine, KIV_SWAP_UNREADABLE, "");
  EXPECT_EQ(machine.calls, kAllSteps);
}

TEST(PagingFiles, CannotBeReadFromAValueOfAnotherType) {
  const DWORD types[] = {REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, 8, 0xFFFFFFFF};
  for (const DWORD type : types) {
    FakeMachine machine;
    machine.type = type;
    ExpectSetting(machine, KIV_SWAP_UNREADABLE, "");
    EXPECT_EQ(machine.calls, kAllSteps);
  }
}

TEST(PagingFiles, AreReadEvenIfTheKeyCannotBeClosed) {
  FakeMachine machine;
  machine.closeStatus = ERROR_INVALID_HANDLE;
  ExpectSetting(machine, KIV_SWAP_FOUND, "C:\\pagefile.sys 0 0");
}

// ---- Paging space ----

TEST(PagingSpace, IsInKibibytesThatFitThirtyTwoBits) {
  struct {
    uint64_t total, available;
    uint32_t totalKiB, usedKiB, freeKiB;
  } const cases[] = {
      {128 * kKiB, 32 * kKiB, 128, 96, 32},
      {2047, 1023, 1, 1, 0},
      {0, 0, 0, 0, 0},
      {4 * kTiB - kKiB - 1, 0, kMax - 1, kMax - 1, 0},
      {4 * kTiB - kKiB, 0, kMax, kMax, 0},
      {4 * kTiB, kKiB, kMax, kMax - 1, 1},
      {16 * kTiB, 8 * kTiB, kMax, 0, kMax},  // the clamped sizes are subtracted
      {UINT64_MAX, UINT64_MAX, kMax, 0, kMax},
  };
  for (const auto& c : cases) {
    FakeMachine machine;
    machine.totalBytes = c.total;
    machine.availableBytes = c.available;
    Guarded<KivSdSwapInfo> info;
    EXPECT_EQ(KivSdSwapInfoGet(nullptr, info), KIV_ST_OK);
    EXPECT_EQ(info->flags, KIV_SWAP_FOUND);
    EXPECT_EQ(info->totalKiB, c.totalKiB);
    EXPECT_EQ(info->usedKiB, c.usedKiB);
    EXPECT_EQ(info->freeKiB, c.freeKiB);
  }
}

TEST(PagingSpace, IsZeroWithoutTheMemoryStatus) {
  FakeMachine machine;
  machine.hasMemoryStatus = FALSE;
  Context ctx;
  Guarded<KivSdSwapInfo> info;
  CHECK_OK(ctx, KivSdSwapInfoGet(ctx, info));
  EXPECT_EQ(info->flags, KIV_SWAP_STATUS_FAILED | KIV_SWAP_FOUND);
  ExpectField(info->pagingFiles, "C:\\pagefile.sys 0 0");
  EXPECT_EQ(info->totalKiB, 0u);
  EXPECT_EQ(info->usedKiB, 0u);
  EXPECT_EQ(info->freeKiB, 0u);
}

TEST(PagingSpace, AndSettingFailIndependently) {
  FakeMachine machine;
  machine.hasMemoryStatus = FALSE;
  machine.openStatus = ERROR_ACCESS_DENIED;
  ExpectSetting(machine, KIV_SWAP_STATUS_FAILED | KIV_SWAP_UNREADABLE, "");
  machine.openStatus = ERROR_SUCCESS;
  machine.setting.clear();
  ExpectSetting(machine, KIV_SWAP_STATUS_FAILED | KIV_SWAP_EMPTY, "");
}

TEST(PagingSpace, OfThisMachineAddsUp) {
  Context ctx;
  Guarded<KivSdSwapInfo> info;
  CHECK_OK(ctx, KivSdSwapInfoGet(ctx, info));
  EXPECT_TRUE(info->flags == KIV_SWAP_FOUND || info->flags == KIV_SWAP_EMPTY ||
              info->flags == KIV_SWAP_UNREADABLE)
      << info->flags;
  EXPECT_EQ(info->pagingFiles[0] != '\0', info->flags == KIV_SWAP_FOUND);
  EXPECT_LE(info->freeKiB, info->totalKiB);
  EXPECT_EQ(info->usedKiB, info->totalKiB - info->freeKiB);
}

TEST(PagingSpaceDeathTest, NeedsARecord) {
  EXPECT_ASSERTION(KivSdSwapInfoGet(nullptr, nullptr), "pSwapInfo != KIV_NULL", "sd/sdosrw32", 262);
}

}  // namespace
