// Linux: the word is a thread_local variable.
#ifndef KIV_OS_LNX_INLINE_THREAD_WORD_H
#define KIV_OS_LNX_INLINE_THREAD_WORD_H

namespace kiv::os {

extern constinit thread_local void* threadWord;

inline void* ReadThreadWord() { return threadWord; }

inline void WriteThreadWord(void* value) { threadWord = value; }

}  // namespace kiv::os

#endif
