// One process of a soak: threads that use all subsystems, each thread for a while.
#ifndef KIV_TESTS_SOAK_WORKER_H
#define KIV_TESTS_SOAK_WORKER_H

#include "soak/options.h"

namespace kiv::soak {

// Runs until the board asks to stop. Then checks what must hold when nothing is used any more.
// Returns the exit code.
int RunWorker(const Options& options);

}  // namespace kiv::soak

#endif
