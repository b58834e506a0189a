// The machine's processors, their numbers, and the page size. None of these can fail.
#ifndef KIV_OS_PROCESSOR_H
#define KIV_OS_PROCESSOR_H

#include "os/os.h"

namespace kiv::os {

// Processor types, numbered as the Windows interface numbers them.
constexpr uint32_t kProcessorIntel386 = 386;
constexpr uint32_t kProcessorIntel486 = 486;
constexpr uint32_t kProcessorIntelPentium = 586;
constexpr uint32_t kProcessorIntelIa64 = 2200;
constexpr uint32_t kProcessorMipsR4000 = 4000;
constexpr uint32_t kProcessorAmdX8664 = 8664;
constexpr uint32_t kProcessorAlpha21064 = 21064;

uint32_t ProcessorCount();  // may be 0 where the system does not say
uint32_t ProcessorType();
uint32_t PageSizeBytes();

// Whether a floating-point number is neither infinite nor not-a-number.
bool IsFinite(double value);

}  // namespace kiv::os

#endif
