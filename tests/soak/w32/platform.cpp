#include "soak/platform.h"

#include <windows.h>

#include <cstdlib>

#include "soak/check.h"

namespace kiv::soak {
namespace {

constexpr UINT kKilled = 0xFFFF;  // no exit code of the program
constexpr int kMostStarts = 3;

// The null device, as a standard output that the child inherits.
HANDLE OpenNullDevice() {
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  return CreateFileA("NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                     OPEN_EXISTING, 0, nullptr);
}

std::string LineOf(const std::vector<std::string>& arguments) {
  std::string line = "soak";
  for (const std::string& argument : arguments) line += " \"" + argument + "\"";
  return line;
}

// On a busy machine Wine sometimes fails to start a process. The next try succeeds.
bool Start(const char* path, const std::string& line, STARTUPINFOA* startup,
           PROCESS_INFORMATION* made) {
  for (int tries = 1; tries <= kMostStarts; ++tries) {
    std::string copy = line;
    if (CreateProcessA(path, copy.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, startup,
                       made)) {
      return true;
    }
  }
  return false;
}

}  // namespace

const char kSystemModule[] = "version.dll";
const char kSystemModuleEntry[] = "VerQueryValueA";

uint32_t OwnProcessId() { return GetCurrentProcessId(); }

void SetVariable(const char* name, const std::string& value) {
  _putenv((std::string(name) + "=" + value).c_str());
}

std::vector<std::string> LeftNames(const std::string& /*prefix*/) { return {}; }

Process::Process(const std::vector<std::string>& arguments) {
  char path[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, path, sizeof path);
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = OpenNullDevice();
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION made = {};
  const bool started = Start(path, LineOf(arguments), &startup, &made);
  CloseHandle(startup.hStdOutput);
  Expect(started, "a process can be started");
  CloseHandle(made.hThread);
  process_ = made.hProcess;
}

Process::~Process() {
  if (process_ == nullptr) return;
  Kill();
  CloseHandle(process_);
}

void Process::Kill() { TerminateProcess(process_, kKilled); }

bool Process::EndsWithin(uint32_t timeoutMs, int* exitCode) {
  if (WaitForSingleObject(process_, timeoutMs) != WAIT_OBJECT_0) return false;
  DWORD code = 0;
  GetExitCodeProcess(process_, &code);
  CloseHandle(process_);
  process_ = nullptr;
  *exitCode = code == kKilled ? -1 : static_cast<int>(code);
  return true;
}

}  // namespace kiv::soak
