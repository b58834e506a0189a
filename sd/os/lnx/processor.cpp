#include "os/processor.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "os/lnx/cgroup.h"

namespace kiv::os {
namespace {

constexpr char kRoot[] = "";
constexpr size_t kSetBytes = 8192;  // 65536 processors, more than the kernel supports

#if defined(__x86_64__)
constexpr uint32_t kType = kProcessorAmdX8664;
#else
constexpr uint32_t kType = kProcessorUnlisted;
#endif

// Processors that this process may run on.
uint32_t AllowedProcessors() {
  alignas(cpu_set_t) unsigned char bytes[kSetBytes] = {};
  auto* set = reinterpret_cast<cpu_set_t*>(bytes);
  if (sched_getaffinity(0, kSetBytes, set) == 0) {
    return static_cast<uint32_t>(CPU_COUNT_S(kSetBytes, set));
  }
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<uint32_t>(online) : 0;
}

}  // namespace

uint32_t ProcessorCount() { return std::min(AllowedProcessors(), GroupProcessors(kRoot)); }

uint32_t ProcessorType() { return kType; }

uint32_t PageSizeBytes() { return static_cast<uint32_t>(sysconf(_SC_PAGESIZE)); }

bool IsFinite(double value) { return std::isfinite(value); }

}  // namespace kiv::os
