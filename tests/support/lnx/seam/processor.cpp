#include "os/processor.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

KIV_SEAM_PRIMITIVE(ProcessorCount, "_ZN3kiv2os14ProcessorCountEv")
KIV_SEAM_PRIMITIVE(ProcessorType, "_ZN3kiv2os13ProcessorTypeEv")
KIV_SEAM_PRIMITIVE(PageSizeBytes, "_ZN3kiv2os13PageSizeBytesEv")

namespace {

void GetSystemInfo(SYSTEM_INFO* info) {
  *info = {RealPageSizeBytes(), RealProcessorCount(), RealProcessorType()};
}

SeamImport<decltype(GetSystemInfo)> getSystemInfo("GetSystemInfo", GetSystemInfo);

SYSTEM_INFO SystemInfo() {
  SYSTEM_INFO info = {};
  getSystemInfo.Call(&info);
  return info;
}

}  // namespace

uint32_t WrapProcessorCount() { return SystemInfo().dwNumberOfProcessors; }
uint32_t WrapProcessorType() { return SystemInfo().dwProcessorType; }
uint32_t WrapPageSizeBytes() { return SystemInfo().dwPageSize; }

}  // namespace kiv::test
