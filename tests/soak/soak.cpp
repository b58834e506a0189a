// Long load: all subsystems of the library at once, in several processes with many threads, some of
// which are killed all the time. A coordinator starts, kills and replaces the processes; a process
// (worker.h) runs the threads; each subsystem (subsystem.h) has a file of its own.
#include "soak/coordinator.h"
#include "soak/options.h"
#include "soak/worker.h"

int main(int argc, char** argv) {
  const kiv::soak::Options options = kiv::soak::ParseOptions(argc, argv);
  return options.worker >= 0 ? kiv::soak::RunWorker(options) : kiv::soak::RunCoordinator(options);
}
