// Windows: the word lies in the module's static thread-local storage, which the loader makes for
// every thread from the image's .tls section.
#ifndef KIV_OS_W32_INLINE_THREAD_WORD_H
#define KIV_OS_W32_INLINE_THREAD_WORD_H

#ifdef _MSC_VER

namespace kiv::os {

extern constinit thread_local void* threadWord;

inline void** ThreadWordPlace() { return &threadWord; }

}  // namespace kiv::os

#else

// In the .tls section; see thread_word.cpp. What lies there is only what the threads' copies are
// made from.
extern "C" void* kivThreadWord;

namespace kiv::os {

// What thread_local comes to on this platform: the thread's array of blocks, this module's block
// in it, the word in that. It is spelt out because GCC would go through a thread library instead,
// and one code serves both compilers.
inline void** ThreadWordPlace() {
  void** place;
  void* blocks;
  asm("movl _tls_index(%%rip), %k0\n\t"
      "movq %%gs:0x58, %1\n\t"
      "movq (%1,%0,8), %0\n\t"
      "leaq kivThreadWord@SECREL32(%0), %0"
      : "=&r"(place), "=&r"(blocks));
  return place;
}

}  // namespace kiv::os

#endif

namespace kiv::os {

inline void* ReadThreadWord() { return *ThreadWordPlace(); }

inline void WriteThreadWord(void* value) { *ThreadWordPlace() = value; }

}  // namespace kiv::os

#endif
