#include "os/error_boxes.h"

#include "os/w32/win32.h"

namespace kiv::os {

static_assert(kErrorBoxesHidden == SEM_FAILCRITICALERRORS);

uint32_t SetErrorBoxes(uint32_t mode) { return SetErrorMode(mode); }

}  // namespace kiv::os
