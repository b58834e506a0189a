#include "os/processor.h"

#include <cfloat>

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

SYSTEM_INFO SystemInfo() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info;
}

}  // namespace

uint32_t ProcessorCount() { return SystemInfo().dwNumberOfProcessors; }

uint32_t ProcessorType() { return SystemInfo().dwProcessorType; }

uint32_t PageSizeBytes() { return SystemInfo().dwPageSize; }

bool IsFinite(double value) { return _finite(value) != 0; }

}  // namespace kiv::os
