// The library's own thread-local pointer.
//
//   void* ReadThreadWord()             this thread's value; null until the thread writes one
//   void WriteThreadWord(void* value)
//
// Unlike a slot, it exists as soon as the library is loaded, is read without a call, and leaves the
// last error alone. It serves every allocation.
#ifndef KIV_OS_THREAD_WORD_H
#define KIV_OS_THREAD_WORD_H

#include "inline/thread_word.h"

#endif
