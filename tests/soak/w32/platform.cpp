#include "soak/platform.h"

#include <windows.h>

#include <cstdlib>

#include "soak/check.h"

namespace kiv::soak {
namespace {

constexpr UINT kKilled = 0xFFFF;  // no exit code of the program

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
  std::string line = LineOf(arguments);
  const bool started = CreateProcessA(path, line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                      nullptr, &startup, &made) != 0;
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
