// Windows: the word lies in the module's static thread-local storage, which the loader makes for
// every thread from the image's .tls section.
//
// The compilers' own thread_local is the same three loads, but one of them takes it through a
// function of a thread library instead. What they have in common is spelt out here.
#ifndef KIV_OS_W32_INLINE_THREAD_WORD_H
#define KIV_OS_W32_INLINE_THREAD_WORD_H

#include <intrin.h>

#include <cstdint>

extern "C" unsigned long _tls_index;  // this module's place among the thread's blocks
extern "C" char* _tls_start;          // where the .tls section begins, and every block as well
extern "C" void* kivThreadWord;       // in that section

namespace kiv::os {

inline void** ThreadWordPlace() {
  constexpr unsigned long kBlocksOfThread = 0x58;  // in the thread's environment block
  const auto* blocks = reinterpret_cast<char* const*>(__readgsqword(kBlocksOfThread));
  const uintptr_t offset =
      reinterpret_cast<uintptr_t>(&kivThreadWord) - reinterpret_cast<uintptr_t>(&_tls_start);
  return reinterpret_cast<void**>(blocks[_tls_index] + offset);
}

inline void* ReadThreadWord() { return *ThreadWordPlace(); }

inline void WriteThreadWord(void* value) { *ThreadWordPlace() = value; }

}  // namespace kiv::os

#endif
