#include "support/machine_facts.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace kiv::test {
namespace {

SYSTEM_INFO SystemInfo() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info;
}

}  // namespace

uint32_t ProcessorsOfMachine() { return SystemInfo().dwNumberOfProcessors; }

uint32_t PageBytesOfMachine() { return SystemInfo().dwPageSize; }

std::string SystemDirectoryOfMachine() {
  char path[MAX_PATH] = {};
  EXPECT_NE(GetWindowsDirectoryA(path, sizeof path), 0u);
  return path;
}

std::string LoginNameOfProcess() {
  char name[512] = {};
  DWORD size = sizeof name;
  EXPECT_TRUE(GetUserNameA(name, &size));
  return name;
}

uint32_t SystemDriveOfMachine() {
  return static_cast<uint32_t>((SystemDirectoryOfMachine()[0] & ~0x20) - 'A' + 1);
}

KivHandle ThisProcess() { return GetCurrentProcess(); }

WorkingSetBytes WorkingSetOfProcess() {
  SIZE_T minimum = 0;
  SIZE_T maximum = 0;
  EXPECT_TRUE(GetProcessWorkingSetSize(GetCurrentProcess(), &minimum, &maximum));
  return {minimum, maximum};
}

}  // namespace kiv::test
