// The shared library stores its own counters, also for the program.
#include "support/lnx/kept_counters.h"

int KivWriteCounters() { return __llvm_profile_write_file(); }

void kiv::test::StoreCounters() { static_cast<void>(KivWriteCounters()); }
