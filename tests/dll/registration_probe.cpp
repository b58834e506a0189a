// A kivutlu.dll for registration_test: it keeps what kivsdu.dll said to it, refuses, and tells.
#include <cstring>

#include "registration_probe.h"

namespace {

Registration seen = {};

}  // namespace

extern "C" int32_t adInitMod(void* module, const AdModuleDescriptor* descriptor, void* output) {
  ++seen.inits;
  seen.module = module;
  seen.descriptor = *descriptor;
  const unsigned char zero[AD_MODULE_OUTPUT_BYTES] = {};
  seen.outputWasZero = std::memcmp(output, zero, sizeof zero) == 0;
  std::memset(output, 0xFF, sizeof zero);  // the area is ours to fill
  return -1;
}

extern "C" void adTermModLib(void* module) {
  ++seen.terms;
  seen.endedModule = module;
}

extern "C" Registration* probeRegistration() { return &seen; }
