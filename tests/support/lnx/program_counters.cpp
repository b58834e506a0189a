// A program stores its own counters and those of the shared library.
//
// Each program has files of its own. The name that the compiler's runtime makes depends on the number
// of counters only: two programs with as many of them in another order would share a file, and the
// runtime would drop the counters of the second.
#include <cerrno>
#include <cstdlib>
#include <string>

#include "support/lnx/kept_counters.h"

namespace {

__attribute__((constructor)) void NameFiles() {
  const char* known = std::getenv("LLVM_PROFILE_FILE");
  if (known == nullptr) return;
  static std::string pattern;
  pattern = known;
  pattern.insert(pattern.rfind('/') + 1, std::string(program_invocation_short_name) + "-");
  __llvm_profile_set_filename(pattern.c_str());
}

}  // namespace

void kiv::test::StoreCounters() {
  static_cast<void>(__llvm_profile_write_file());
  if (KivWriteCounters != nullptr) static_cast<void>(KivWriteCounters());
}
