// The C runtime's copy of the process's environment.
#ifndef KIV_OS_ENVIRONMENT_H
#define KIV_OS_ENVIRONMENT_H

namespace kiv::os {

// The variable's text, which the runtime owns, or null if the variable is not set.
const char* EnvironmentValue(const char* name);

}  // namespace kiv::os

#endif
