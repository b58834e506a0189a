// The benchmark's own process.
#ifndef KIV_BENCH_W32_OWN_PROCESS_H
#define KIV_BENCH_W32_OWN_PROCESS_H

#include <windows.h>
// After windows.h.
#include <psapi.h>

#include <process.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace kiv::bench {

inline void SetVariable(const std::string& name, const std::string& value) {
  _putenv((name + "=" + value).c_str());
}

inline std::string OwnPath() {
  char path[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, path, sizeof path);
  return path;
}

// Physical memory of the process.
inline uint64_t WorkingSetBytes() {
  PROCESS_MEMORY_COUNTERS counters = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
  return counters.WorkingSetSize;
}

// Runs this program with one argument and waits for its end. Whether it ended with 0.
inline bool RunItself(const char* argument) {
  return _spawnl(_P_WAIT, OwnPath().c_str(), "bench", argument, nullptr) == 0;
}

}  // namespace kiv::bench

#endif
