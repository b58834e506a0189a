#include "os/thread_word.h"

#ifdef _MSC_VER

namespace kiv::os {

constinit thread_local ThreadArea threadArea = {};

}  // namespace kiv::os

#else

__attribute__((section(".tls$"))) kiv::os::ThreadArea kivThreadArea = {};

#endif
