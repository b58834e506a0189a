// Physical memory and paging space.
#include "kivsdu/memory.h"

#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/machine.h"
#include "os/registry.h"
#include "report.h"
#include "require.h"
#include "sdosrw32/kibibytes.h"
#include "text.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdosrw32";
constexpr uint32_t kLinePhysMemInfo = 210;
constexpr uint32_t kLineSwapInfo = 262;
constexpr uint32_t kLineSettingAlloc = 301;
constexpr uint32_t kLineSettingFree = 334;

constexpr char kPagingKey[] =
    "SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Memory Management";
constexpr char kPagingValue[] = "PagingFiles";

void FillPagingSizes(KivSdSwapInfo* info) {
  const os::ValueResult<os::MemoryStatus> status = os::PagingMemory();
  if (!status.ok) {
    info->flags |= KIV_SWAP_STATUS_FAILED;
    return;
  }
  info->totalKiB = ClampedKiB(status.value.totalBytes);
  info->freeKiB = ClampedKiB(status.value.availableBytes);
  info->usedKiB = info->totalKiB - info->freeKiB;
}

// Copies the first string of the setting. The value may lack a terminator: reads only the bytes
// that belong to it.
bool CopySetting(void* key, char* buffer, uint32_t sizeBytes, KivSdSwapInfo* info) {
  const os::ValueResult<os::RegistryValue> value =
      os::ReadRegistryValue(key, kPagingValue, buffer, sizeBytes);
  if (!value.ok || value.value.type != os::kRegistryMultiString) return false;
  const size_t copied =
      CopyText(info->pagingFiles, sizeof info->pagingFiles - 1, buffer, value.value.sizeBytes);
  info->flags |= copied != 0 ? KIV_SWAP_FOUND : KIV_SWAP_EMPTY;
  return true;
}

bool ReadSettingOf(void* key, KivSdSwapInfo* info) {
  const os::ValueResult<uint32_t> largest = os::LargestRegistryValue(key);
  if (!largest.ok) return false;
  void* buffer = nullptr;
  const uint32_t status =
      KivSdMemAlloc(nullptr, 0, largest.value, &buffer, kSource, kLineSettingAlloc);
  if (status != KIV_ST_OK) return false;
  const bool copied = CopySetting(key, static_cast<char*>(buffer), largest.value, info);
  static_cast<void>(KivSdMemFree(nullptr, buffer, kSource, kLineSettingFree));
  return copied;
}

bool ReadPagingSetting(KivSdSwapInfo* info) {
  const os::ValueResult<void*> key = os::OpenRegistryKey(kPagingKey);
  if (!key.ok) return false;
  const bool read = ReadSettingOf(key.value, info);
  static_cast<void>(os::CloseRegistryKey(key.value));
  return read;
}

}  // namespace

uint32_t KivSdPhysMemInfoGet(KivSdContext* ctx, KivSdPhysMemInfo* info) {
  RunLeaseGuard();
  Require(info != KIV_NULL, "pPhysMemInfo != KIV_NULL", kSource, kLinePhysMemInfo);
  static_cast<void>(KivSdMemClear(nullptr, info, sizeof *info));
  const os::MemoryStatus status = os::PhysicalMemory();
  info->totalKiB = ClampedKiB(status.totalBytes);
  info->availableKiB = ClampedKiB(status.availableBytes);
  info->usedKiB = info->totalKiB - info->availableKiB;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdSwapInfoGet(KivSdContext* ctx, KivSdSwapInfo* info) {
  RunLeaseGuard();
  Require(info != KIV_NULL, "pSwapInfo != KIV_NULL", kSource, kLineSwapInfo);
  static_cast<void>(KivSdMemClear(nullptr, info, sizeof *info));
  FillPagingSizes(info);
  if (!ReadPagingSetting(info)) info->flags |= KIV_SWAP_UNREADABLE;
  return Report(ctx, KIV_ST_OK);
}
