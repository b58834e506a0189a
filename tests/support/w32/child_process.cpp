#include <gtest/gtest.h>
#include <windows.h>

#include "support/child_process.h"
#include "support/own_process.h"
#include "support/waiting.h"

namespace kiv::test {
namespace {

std::string OwnPath() {
  char path[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, path, sizeof path);
  return path;
}

DWORD exitCodeOfLateEnd;

DWORD WINAPI EndLate(void* delayMs) {
  Sleep(static_cast<DWORD>(reinterpret_cast<uintptr_t>(delayMs)));
  TerminateProcess(GetCurrentProcess(), exitCodeOfLateEnd);
  return 0;
}

}  // namespace

void EndOwnProcessAfter(uint32_t delayMs, uint32_t exitCode) {
  exitCodeOfLateEnd = exitCode;
  CloseHandle(
      CreateThread(nullptr, 0, EndLate, reinterpret_cast<void*>(uintptr_t{delayMs}), 0, nullptr));
}

uint32_t OwnProcessId() { return GetCurrentProcessId(); }

ChildProcess::ChildProcess(const std::string& role, const RoleArguments& arguments) {
  const std::string path = OwnPath();
  std::string line = "\"" + path + "\" --role=" + role;
  for (const std::string& argument : arguments) line += " " + argument;

  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION made = {};
  constexpr BOOL kInheritHandles = TRUE;
  if (!CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, kInheritHandles, 0, nullptr,
                      nullptr, &startup, &made)) {
    ADD_FAILURE() << "cannot start " << line << ": " << GetLastError();
    return;
  }
  CloseHandle(made.hThread);
  process_ = made.hProcess;
  id_ = made.dwProcessId;
}

ChildProcess::~ChildProcess() {
  if (!EndsWithin(0)) Kill();
  CloseHandle(process_);
}

bool ChildProcess::EndsWithin(uint32_t timeoutMs) const {
  return WaitForSingleObject(process_, timeoutMs) == WAIT_OBJECT_0;
}

uint32_t ChildProcess::ExitCode() const {
  EXPECT_TRUE(EndsWithin(kLimitMs)) << "the process does not end";
  DWORD code = kStillRunning;
  EXPECT_TRUE(GetExitCodeProcess(process_, &code));
  return code;
}

void ChildProcess::Kill() const {
  TerminateProcess(process_, kKilled);
  WaitForSingleObject(process_, kLimitMs);
}

InheritingChild::InheritingChild(const std::string& role, void* end, void* /*other*/) {
  const HANDLE self = GetCurrentProcess();
  HANDLE copy = nullptr;
  EXPECT_TRUE(DuplicateHandle(self, end, self, &copy, 0, TRUE, DUPLICATE_SAME_ACCESS));
  process_ = new ChildProcess(role, {std::to_string(reinterpret_cast<uintptr_t>(copy))});
  CloseHandle(copy);
}

SharedSignal::SharedSignal(const std::string& name)
    : name_(name), event_(CreateEventA(nullptr, FALSE, FALSE, name.c_str())) {
  EXPECT_NE(event_, nullptr) << name << ": " << GetLastError();
}

SharedSignal::~SharedSignal() { CloseHandle(event_); }

void SharedSignal::Set() const { EXPECT_TRUE(SetEvent(event_)) << name_; }

void SharedSignal::Await() const {
  EXPECT_EQ(WaitForSingleObject(event_, kLimitMs), WAIT_OBJECT_0) << name_ << " does not come";
}

}  // namespace kiv::test
