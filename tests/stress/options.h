// The command line of lock_stress.
#ifndef KIV_TESTS_STRESS_OPTIONS_H
#define KIV_TESTS_STRESS_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::stress {

struct Options {
  double seconds = 60;
  uint64_t seed = 0;               // random by default
  std::vector<std::string> locks;  // empty: all
  uint32_t threads = 0;            // 0: each trial draws its number
  double hangSeconds = 20;
};

// Ends the program after --help, or after an option that is unknown or out of range.
Options ParseOptions(int argc, char** argv, const std::vector<std::string>& locks);

}  // namespace kiv::stress

#endif
