#include "os/processor.h"

#include <unistd.h>

#include <cmath>

namespace kiv::os {

uint32_t ProcessorCount() {
  const long count = sysconf(_SC_NPROCESSORS_ONLN);
  return count > 0 ? static_cast<uint32_t>(count) : 0;
}

uint32_t ProcessorType() { return kProcessorAmdX8664; }

uint32_t PageSizeBytes() { return static_cast<uint32_t>(sysconf(_SC_PAGESIZE)); }

bool IsFinite(double value) { return std::isfinite(value); }

}  // namespace kiv::os
