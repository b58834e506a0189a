#include "os/thread_word.h"

namespace kiv::os {

constinit thread_local void* threadWord = nullptr;

}  // namespace kiv::os
