// The command line of the soak test.
#ifndef KIV_TESTS_SOAK_OPTIONS_H
#define KIV_TESTS_SOAK_OPTIONS_H

#include <cstdint>
#include <string>

namespace kiv::soak {

struct Options {
  uint32_t seconds = 600;
  uint32_t processes = 4;
  uint32_t threads = 16;  // of each process
  uint32_t killMs = 1000;
  uint64_t seed = 0;  // random by default
  // Set by the coordinator when it starts a process.
  int32_t worker = -1;  // the process's place, or -1: this is the coordinator
  std::string prefix;
  std::string folder;
};

// Ends the program after --help, or after an option that is unknown or out of range.
Options ParseOptions(int argc, char** argv);

}  // namespace kiv::soak

#endif
