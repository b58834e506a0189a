// The benchmark's own process.
#ifndef KIV_BENCH_LNX_OWN_PROCESS_H
#define KIV_BENCH_LNX_OWN_PROCESS_H

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

namespace kiv::bench {

inline void SetVariable(const std::string& name, const std::string& value) {
  setenv(name.c_str(), value.c_str(), 1);
}

// Physical memory of the process.
inline uint64_t WorkingSetBytes() {
  std::ifstream pages("/proc/self/statm");
  uint64_t total = 0;
  uint64_t resident = 0;
  pages >> total >> resident;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// Runs this program with one argument and waits for its end. Whether it ended with 0.
inline bool RunItself(const char* argument) {
  std::string program = "bench";
  std::string word = argument;
  char* const words[] = {program.data(), word.data(), nullptr};
  pid_t id = 0;
  int status = 1;
  return posix_spawn(&id, "/proc/self/exe", nullptr, nullptr, words, environ) == 0 &&
         waitpid(id, &status, 0) == id && status == 0;
}

}  // namespace kiv::bench

#endif
