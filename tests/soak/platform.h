// What the soak test needs of the system and the library does not offer.
#ifndef KIV_TESTS_SOAK_PLATFORM_H
#define KIV_TESTS_SOAK_PLATFORM_H

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::soak {

// A module of the system, and one of its entry points.
extern const char kSystemModule[];
extern const char kSystemModuleEntry[];

uint32_t OwnProcessId();

void SetVariable(const char* name, const std::string& value);

// Names with this prefix of kernel objects, shared blocks and pipes. A system whose names end with
// their last handle has none that could be left.
std::vector<std::string> LeftNames(const std::string& prefix);

// This program, started anew. Its standard output is dropped.
class Process {
 public:
  explicit Process(const std::vector<std::string>& arguments);
  ~Process();  // kills it if it still runs
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void Kill();

  // Whether the process ends within the time. If so, stores its exit code, or -1 if it was killed.
  bool EndsWithin(uint32_t timeoutMs, int* exitCode);

 private:
  void* process_ = nullptr;
};

}  // namespace kiv::soak

#endif
