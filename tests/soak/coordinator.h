// Starts the processes of a soak, kills them, and checks what they leave.
#ifndef KIV_TESTS_SOAK_COORDINATOR_H
#define KIV_TESTS_SOAK_COORDINATOR_H

#include "soak/options.h"

namespace kiv::soak {

// Returns the exit code: 0, or kBroken after a message.
int RunCoordinator(const Options& options);

}  // namespace kiv::soak

#endif
