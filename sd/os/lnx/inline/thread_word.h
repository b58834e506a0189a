// Linux: the memory is a thread_local variable.
#ifndef KIV_OS_LNX_INLINE_THREAD_WORD_H
#define KIV_OS_LNX_INLINE_THREAD_WORD_H

namespace kiv::os {

extern constinit thread_local ThreadArea threadArea;

inline ThreadArea* OwnThreadArea() { return &threadArea; }

}  // namespace kiv::os

#endif
