// The calls that the probing utility library recorded.
#ifndef KIV_TESTS_DLL_REGISTRATION_PROBE_H
#define KIV_TESTS_DLL_REGISTRATION_PROBE_H

#include "kivutlu/kivutlu.h"

struct Registration {
  int inits;
  int terms;
  void* module;
  void* endedModule;
  bool outputWasZero;
  AdModuleDescriptor descriptor;
};

#endif
