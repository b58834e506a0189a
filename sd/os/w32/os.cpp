#include "os/os.h"

#include "os/w32/win32.h"

namespace kiv::os {

uint32_t LastError() { return GetLastError(); }

}  // namespace kiv::os
