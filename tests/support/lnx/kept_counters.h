// Stores the counters of a build for coverage before a process ends.
#ifndef KIV_TESTS_LNX_KEPT_COUNTERS_H
#define KIV_TESTS_LNX_KEPT_COUNTERS_H

extern "C" {
// Writes the counters of the program or library that it is linked into; a part of the compiler's
// runtime.
int __llvm_profile_write_file();

// Names the program's files in place of LLVM_PROFILE_FILE; the text must stay.
void __llvm_profile_set_filename(const char* pattern);

// Writes the shared library's counters; null in a program that links the static one.
__attribute__((visibility("default"), weak)) int KivWriteCounters();
}

namespace kiv::test {

// Defined by program_counters.cpp and library_counters.cpp.
__attribute__((visibility("hidden"))) void StoreCounters();

}  // namespace kiv::test

#endif
