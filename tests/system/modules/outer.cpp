// A module that cannot be loaded without kiv_needing, and therefore not without kiv_needed.
#include <cstdint>

#include "module_api.h"

extern "C" MODULE_IMPORT uint32_t NeedingAnswer();
extern "C" MODULE_EXPORT uint32_t OuterAnswer();

uint32_t OuterAnswer() { return NeedingAnswer() + 1; }
