// Resources of the machine: its processors, the system's name and version, and the record of all
// resources.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "kivsdu/memory.h"
#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/machine.h"
#include "os/processor.h"
#include "report.h"
#include "require.h"
#include "text.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdcommon";
constexpr uint32_t kLineResourcesSize = 1302;
constexpr uint32_t kLineResources = 1341;
constexpr uint32_t kLineProcessor = 1420;
constexpr uint32_t kLineSystem = 1466;
constexpr uint32_t kLineAvailable = 1502;
constexpr uint32_t kLineOrdinal = 1540;
constexpr uint32_t kLineOrdinalBuffer = 1541;

constexpr size_t kMaxNameCharacters = 60;

// By kind. All platforms share the numbers, so the table has processors that this platform never
// reports.
constexpr const char* kProcessorNames[] = {
    "Unknown",
    "8086/8088",
    "80286",
    "80386",
    "80486",
    "Pentium",
    "MIPS R4000",
    "Alpha 21064",
    "HP Precision Architecture RISC Version 1.0",
    "HP Precision Architecture RISC Version 1.1",
    "Multi-chip POWER Classic",
    "Single-chip POWER Classic",
    "POWER 2",
    "PowerPC 601",
    "PowerPC 603",
    "PowerPC 604",
    "PowerPC 620",
    "PowerPC 630",
    "PowerPC A35",
    "PowerPC RS64-II",
    "PowerPC RS64-III",
    "PowerPC RS64-IV",
    "PowerPC MPC7450",
    "80686",
    "X86_64",
    "sparc sun4",
    "sparc sun4c",
    "sparc sun4d",
    "sparc sun4m",
    "sparc sun4u",
    "sparc sun4v",
    "HP Precision Architecture RISC Version 2.0",
    "Intel Architecture-64",
};
static_assert(std::size(kProcessorNames) == KIV_PROCESSOR_KINDS);

uint32_t ProcessorKind(uint32_t type) {
  switch (type) {
    case os::kProcessorIntel386:
      return KIV_PROCESSOR_80386;
    case os::kProcessorIntel486:
      return KIV_PROCESSOR_80486;
    case os::kProcessorIntelPentium:
      return KIV_PROCESSOR_PENTIUM;
    case os::kProcessorIntelIa64:
      return KIV_PROCESSOR_IA64;
    case os::kProcessorMipsR4000:
      return KIV_PROCESSOR_MIPS_R4000;
    case os::kProcessorAmdX8664:
      return KIV_PROCESSOR_X86_64;
    case os::kProcessorAlpha21064:
      return KIV_PROCESSOR_ALPHA_21064;
    default:
      return KIV_PROCESSOR_UNKNOWN;
  }
}

uint64_t ResourcesBytes(uint32_t driveCount) {
  const uint32_t further = driveCount >= 2 ? driveCount - 1 : 0;
  return sizeof(KivSdOSResources) + static_cast<uint64_t>(further) * sizeof(KivSdDriveInfo);
}

// Writes the part of the drives field that lies inside the buffer. The caller has not yet checked
// that the buffer is large enough.
void StoreDrives(unsigned char* buffer, uint32_t sizeBytes, const KivSdDrives& drives) {
  constexpr uint32_t kOffset = offsetof(KivSdOSResources, drives);
  if (sizeBytes <= kOffset) return;
  std::memcpy(buffer + kOffset, &drives, std::min<size_t>(sizeBytes - kOffset, sizeof drives));
}

uint32_t FillTimes(KivSdContext* ctx, KivSdOSResources* resources) {
  uint64_t seconds = 0;
  uint32_t status = KivSdTime(ctx, &seconds);
  if (status != KIV_ST_OK) return status;
  status = KivSdLocalTimeGet(ctx, static_cast<int64_t>(seconds), &resources->localTime);
  if (status != KIV_ST_OK) return status;
  uint64_t elapsedSeconds = 0;
  status = KivSdTimeElapsedOS(ctx, &elapsedSeconds);
  resources->elapsedSeconds = static_cast<uint32_t>(elapsedSeconds);
  return status;
}

uint32_t FillMachine(KivSdContext* ctx, KivSdOSResources* resources) {
  uint32_t status = KivSdOSInfoGet(ctx, &resources->os);
  if (status == KIV_ST_OK) status = KivSdCPUInfoGet(ctx, &resources->processor);
  if (status == KIV_ST_OK) status = KivSdPhysMemInfoGet(ctx, &resources->memory);
  if (status == KIV_ST_OK) status = KivSdSwapInfoGet(ctx, &resources->paging);
  return status;
}

// Fills one record for each drive of the mask, in ascending order.
uint32_t FillDriveRecords(KivSdContext* ctx, const KivSdDrives& drives, KivSdDriveInfo* record) {
  for (uint32_t ordinal = 1; ordinal <= KIV_DRIVES_MAX; ++ordinal) {
    if ((drives.mask >> (ordinal - 1) & 1) == 0) continue;
    const uint32_t status = KivSdDriveInfoGet(ctx, ordinal, record++);
    if (status != KIV_ST_OK) return status;
  }
  return KIV_ST_OK;
}

}  // namespace

uint32_t KivSdOSResourcesSizeGet(KivSdContext* ctx, uint64_t* sizeBytes) {
  RunLeaseGuard();
  Require(sizeBytes != KIV_NULL, "pSizeOSResource != KIV_NULL", kSource, kLineResourcesSize);
  KivSdDrives drives;
  const uint32_t status = KivSdDrivesGet(ctx, &drives);
  if (status == KIV_ST_OK) *sizeBytes = ResourcesBytes(drives.count);
  return status;
}

uint32_t KivSdOSResourcesGet(KivSdContext* ctx, uint32_t sizeBytes, KivSdOSResources* resources) {
  RunLeaseGuard();
  Require(resources != KIV_NULL, "pOSResources != KIV_NULL", kSource, kLineResources);
  static_cast<void>(KivSdMemClear(nullptr, resources, sizeBytes));
  KivSdDrives drives;
  uint32_t status = KivSdDrivesGet(ctx, &drives);
  StoreDrives(reinterpret_cast<unsigned char*>(resources), sizeBytes, drives);
  if (status != KIV_ST_OK) return status;
  if (sizeBytes < ResourcesBytes(drives.count)) return Report(ctx, KIV_ST_OS_RESOURCES);

  // Each call below writes the context, so the first failure's record stays.
  status = FillTimes(ctx, resources);
  if (status == KIV_ST_OK) status = FillMachine(ctx, resources);
  if (status == KIV_ST_OK) status = FillDriveRecords(ctx, drives, resources->drive);
  return status;
}

uint32_t KivSdCPUInfoGet(KivSdContext* ctx, KivSdProcessorInfo* info) {
  RunLeaseGuard();
  Require(info != KIV_NULL, "pCPUInfo != KIV_NULL", kSource, kLineProcessor);
  static_cast<void>(KivSdMemClear(nullptr, info, sizeof *info));
  info->count = os::ProcessorCount();
  info->kind = ProcessorKind(os::ProcessorType());
  CopyText(info->name, kMaxNameCharacters, kProcessorNames[info->kind]);
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdOSInfoGet(KivSdContext* ctx, KivSdOSInfo* info) {
  RunLeaseGuard();
  Require(info != KIV_NULL, "pOSInfo != KIV_NULL", kSource, kLineSystem);
  static_cast<void>(KivSdMemClear(nullptr, info, sizeof *info));
  const uint32_t version = os::SystemVersion();
  CopyText(info->name, kMaxNameCharacters, os::SystemName(version));
  std::sprintf(info->version, "%d.%02d", static_cast<int>(version & 0xFF),
               static_cast<int>(version >> 8 & 0xFF));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdAvailVirtMemGet(KivSdContext* ctx, uint64_t* sizeKiB) {
  RunLeaseGuard();
  Require(sizeKiB != KIV_NULL, "pSizeAvailVirtMem != KIV_NULL", kSource, kLineAvailable);
  KivSdSwapInfo paging;
  uint32_t status = KivSdSwapInfoGet(ctx, &paging);
  if (status != KIV_ST_OK) return status;
  if ((paging.flags & KIV_SWAP_STATUS_FAILED) != 0) return Report(ctx, KIV_ST_AVAIL_VIRT_MEM);

  KivSdPhysMemInfo memory;
  status = KivSdPhysMemInfoGet(ctx, &memory);
  if (status != KIV_ST_OK) return status;
  *sizeKiB = static_cast<uint64_t>(paging.freeKiB) + memory.availableKiB;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdDriveOrdinalToName(KivSdContext* ctx, uint32_t ordinal, uint32_t length, char* name) {
  RunLeaseGuard();
  Require(ordinal >= 1 && ordinal <= KIV_DRIVES_MAX,
          "ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX", kSource, kLineOrdinal);
  Require(name != KIV_NULL && length != 0, "pszDriveName != KIV_NULL && sizeBuf != 0", kSource,
          kLineOrdinalBuffer);
  static_cast<void>(KivSdMemClear(nullptr, name, length));
  name[0] = DriveLetter(ordinal);
  return Report(ctx, KIV_ST_OK);
}
