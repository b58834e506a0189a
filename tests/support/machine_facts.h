// What the system itself says about the machine and the process, for comparison with the library's
// answers.
#ifndef KIV_TESTS_MACHINE_FACTS_H
#define KIV_TESTS_MACHINE_FACTS_H

#include <cstdint>
#include <string>

#include "kivsdu/api.h"

namespace kiv::test {

uint32_t ProcessorsOfMachine();
uint32_t PageBytesOfMachine();
std::string SystemDirectoryOfMachine();
std::string LoginNameOfProcess();

// The drive of the system directory.
uint32_t SystemDriveOfMachine();

KivHandle ThisProcess();

struct WorkingSetBytes {
  uint64_t minimum;
  uint64_t maximum;
};
WorkingSetBytes WorkingSetOfProcess();

}  // namespace kiv::test

#endif
