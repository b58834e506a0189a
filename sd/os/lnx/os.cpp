#include "os/os.h"

#include <cerrno>

namespace kiv::os {

uint32_t LastError() { return static_cast<uint32_t>(errno); }

}  // namespace kiv::os
