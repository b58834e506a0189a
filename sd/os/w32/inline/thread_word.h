// Windows: the memory lies in the module's static thread-local storage. The loader makes a copy of the
// image's .tls section for every thread.
#ifndef KIV_OS_W32_INLINE_THREAD_WORD_H
#define KIV_OS_W32_INLINE_THREAD_WORD_H

#ifdef _MSC_VER

namespace kiv::os {

extern constinit thread_local ThreadArea threadArea;

inline ThreadArea* OwnThreadArea() { return &threadArea; }

}  // namespace kiv::os

#else

// The initial value, in the .tls section (thread_word.cpp). Each thread has its own copy of it.
extern "C" kiv::os::ThreadArea kivThreadArea;

namespace kiv::os {

// Does by hand what thread_local compiles to on Windows: loads the thread's array of TLS blocks,
// then this module's block, then adds the area's offset in the block. GCC would call a thread
// library instead. Clang and GCC both use this code.
inline ThreadArea* OwnThreadArea() {
  ThreadArea* area;
  void* blocks;
  asm("movl _tls_index(%%rip), %k0\n\t"
      "movq %%gs:0x58, %1\n\t"
      "movq (%1,%0,8), %0\n\t"
      "leaq kivThreadArea@SECREL32(%0), %0"
      : "=&r"(area), "=&r"(blocks));
  return area;
}

}  // namespace kiv::os

#endif

#endif
