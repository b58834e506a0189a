// Processors, the page size, and a test of floating-point numbers. None of these can fail.
#ifndef KIV_OS_PROCESSOR_H
#define KIV_OS_PROCESSOR_H

#include "os/os.h"

namespace kiv::os {

// Processor types, with the values of the Windows interface.
constexpr uint32_t kProcessorIntel386 = 386;
constexpr uint32_t kProcessorIntel486 = 486;
constexpr uint32_t kProcessorIntelPentium = 586;
constexpr uint32_t kProcessorIntelIa64 = 2200;
constexpr uint32_t kProcessorMipsR4000 = 4000;
constexpr uint32_t kProcessorAmdX8664 = 8664;
constexpr uint32_t kProcessorAlpha21064 = 21064;
constexpr uint32_t kProcessorUnlisted = 0;  // has no name in the table of kinds

uint32_t ProcessorCount();  // 0 if the system does not report it
uint32_t ProcessorType();
uint32_t PageSizeBytes();

// Whether the value is neither an infinity nor a NaN.
bool IsFinite(double value);

}  // namespace kiv::os

#endif
