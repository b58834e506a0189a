// In a build for coverage, a part of each program: stores what the program itself has counted before
// an assertion ends it. Those of a DLL are stored whenever the process ends.
#include <csignal>

// Writes the program's counters; null in a program without any.
extern "C" __attribute__((weak)) int __llvm_profile_write_file();

namespace {

void StoreCounters(int) { static_cast<void>(__llvm_profile_write_file()); }

__attribute__((constructor)) void StoreOnAbort() {
  if (__llvm_profile_write_file != nullptr) std::signal(SIGABRT, &StoreCounters);
}

}  // namespace
