// The command line of lock_stress.
#ifndef KIV_TESTS_STRESS_OPTIONS_H
#define KIV_TESTS_STRESS_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::stress {

struct Options {
  double seconds = 60;
  uint64_t seed = 0;               // any by default
  std::vector<std::string> locks;  // empty: all
  uint32_t threads = 0;            // 0: as many as each trial draws
  double hangSeconds = 20;
};

// Ends the program when it is asked for help, or for what does not exist.
Options ParseOptions(int argc, char** argv, const std::vector<std::string>& locks);

}  // namespace kiv::stress

#endif
