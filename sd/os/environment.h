// The process's environment, as the C runtime took it when the process started.
#ifndef KIV_OS_ENVIRONMENT_H
#define KIV_OS_ENVIRONMENT_H

namespace kiv::os {

// The variable's text, or null if it is not set. The text stays the runtime's own.
const char* EnvironmentValue(const char* name);

}  // namespace kiv::os

#endif
