// A module that kiv_needing depends on.
#include <cstdint>

#include "module_api.h"

extern "C" MODULE_EXPORT uint32_t NeededAnswer();

uint32_t NeededAnswer() { return 42; }
