// A module that cannot be loaded without kiv_needed.
#include <cstdint>

#include "module_api.h"

extern "C" MODULE_IMPORT uint32_t NeededAnswer();
extern "C" MODULE_EXPORT uint32_t NeedingAnswer();

uint32_t NeedingAnswer() { return NeededAnswer() + 1; }
