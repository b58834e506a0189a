// Memory that the code under test may not touch. Only the address sanitizer watches it.
#ifndef KIV_TESTS_FUZZ_POISON_H
#define KIV_TESTS_FUZZ_POISON_H

#include <sanitizer/asan_interface.h>

#include <cstddef>

namespace kiv::fuzz {

inline void Poison([[maybe_unused]] const void* memory, [[maybe_unused]] size_t sizeBytes) {
  ASAN_POISON_MEMORY_REGION(memory, sizeBytes);
}

inline void Unpoison([[maybe_unused]] const void* memory, [[maybe_unused]] size_t sizeBytes) {
  ASAN_UNPOISON_MEMORY_REGION(memory, sizeBytes);
}

}  // namespace kiv::fuzz

#endif
