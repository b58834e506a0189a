// A kivutlu for registration_test: records the calls of kivsdu, returns a failure, and hands the
// record to the test.
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
  std::memset(output, 0xFF, sizeof zero);  // the whole area may be written
  return -1;
}

extern "C" void adTermModLib(void* module) {
  ++seen.terms;
  seen.endedModule = module;
}

extern "C" Registration* probeRegistration() { return &seen; }
