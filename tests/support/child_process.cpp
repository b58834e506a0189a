#include "support/child_process.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstring>
#include <map>

#include "support/waiting.h"

namespace kiv::test {
namespace {

constexpr DWORD kLongestRoleMs = 90000;
constexpr int kMaxStarts = 3;
constexpr char kRoleFlag[] = "--role=";

// Created on first use, because roles register before main and in any order.
std::map<std::string, Role>& Roles() {
  static std::map<std::string, Role> roles;
  return roles;
}

std::string OwnPath() {
  char path[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, path, sizeof path);
  return path;
}

// On a busy machine Wine sometimes fails to start a process. The next try succeeds.
bool Start(const std::string& path, std::string line, STARTUPINFOA* startup,
           PROCESS_INFORMATION* made) {
  constexpr BOOL kInheritHandles = TRUE;
  for (int tries = 1;; ++tries) {
    if (CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, kInheritHandles, 0, nullptr,
                       nullptr, startup, made)) {
      return true;
    }
    if (GetLastError() != ERROR_INTERNAL_ERROR || tries == kMaxStarts) return false;
  }
}

// Ends a role whose test has ended: some roles wait until they are killed.
DWORD WINAPI EndLate(void*) {
  Sleep(kLongestRoleMs);
  TerminateProcess(GetCurrentProcess(), kRoleOutlived);
  return 0;
}

uint32_t PlayRole(const std::string& name, const RoleArguments& arguments) {
  const auto found = Roles().find(name);
  if (found == Roles().end()) return kRoleUnknown;
  CloseHandle(CreateThread(nullptr, 0, EndLate, nullptr, 0, nullptr));
  const uint32_t result = found->second(arguments);
  // GoogleTest collects the failures of checks outside a test here.
  const bool failed = testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
  return failed ? kRoleFailed : result;
}

}  // namespace

RegisteredRole::RegisteredRole(const char* name, Role role) { Roles()[name] = role; }

ChildProcess::ChildProcess(const std::string& role, const RoleArguments& arguments) {
  const std::string path = OwnPath();
  std::string line = "\"" + path + "\" " + kRoleFlag + role;
  for (const std::string& argument : arguments) line += " " + argument;

  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION made = {};
  if (!Start(path, line, &startup, &made)) {
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

SharedSignal::SharedSignal(const std::string& name)
    : name_(name), event_(CreateEventA(nullptr, FALSE, FALSE, name.c_str())) {
  EXPECT_NE(event_, nullptr) << name << ": " << GetLastError();
}

SharedSignal::~SharedSignal() { CloseHandle(event_); }

void SharedSignal::Set() const { EXPECT_TRUE(SetEvent(event_)) << name_; }

void SharedSignal::Await() const {
  EXPECT_EQ(WaitForSingleObject(event_, kLimitMs), WAIT_OBJECT_0) << name_ << " does not come";
}

std::string UniqueName(const std::string& prefix) {
  static std::atomic<uint32_t> number{0};
  return prefix + "-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++number);
}

}  // namespace kiv::test

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const size_t flagLength = std::strlen(kiv::test::kRoleFlag);
  if (argc > 1 && std::strncmp(argv[1], kiv::test::kRoleFlag, flagLength) == 0) {
    return static_cast<int>(
        kiv::test::PlayRole(argv[1] + flagLength, kiv::test::RoleArguments(argv + 2, argv + argc)));
  }
  return RUN_ALL_TESTS();
}
