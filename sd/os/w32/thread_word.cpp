#include "os/thread_word.h"

#ifdef _MSC_VER

namespace kiv::os {

constinit thread_local void* threadWord = nullptr;

}  // namespace kiv::os

#else

__attribute__((section(".tls$"))) void* kivThreadWord = nullptr;

#endif
