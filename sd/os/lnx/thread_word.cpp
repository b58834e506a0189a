#include "os/thread_word.h"

namespace kiv::os {

constinit thread_local ThreadArea threadArea = {};

}  // namespace kiv::os
