// A program stores its own counters and those of the shared library.
#include "support/lnx/kept_counters.h"

void kiv::test::StoreCounters() {
  static_cast<void>(__llvm_profile_write_file());
  if (KivWriteCounters != nullptr) static_cast<void>(KivWriteCounters());
}
