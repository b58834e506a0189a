// One pointer for every thread, the library's own.
//
//   void* ReadThreadWord()             this thread's; null until the thread sets one
//   void WriteThreadWord(void* value)
//
// Unlike a slot it exists as soon as the library is loaded and needs no call to read: it is for
// what every allocation asks. It leaves the last error alone.
#ifndef KIV_OS_THREAD_WORD_H
#define KIV_OS_THREAD_WORD_H

#include "inline/thread_word.h"

#endif
