#include "os/environment.h"

#include <cstdlib>

namespace kiv::os {

const char* EnvironmentValue(const char* name) { return std::getenv(name); }

}  // namespace kiv::os
