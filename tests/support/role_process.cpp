#include "support/role_process.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace kiv::test {
namespace {

constexpr char kOption[] = "--role=";
constexpr DWORD kRoleLifeMs = 90000;
constexpr uint32_t kKilled = 0xDEAD;
constexpr uint32_t kNoSuchRole = 0xBAD1;
constexpr uint32_t kOutlived = 0xBAD2;

DWORD WINAPI EndLate(void*) {
  Sleep(kRoleLifeMs);
  TerminateProcess(GetCurrentProcess(), kOutlived);
  return 0;
}

std::string OwnPath() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, sizeof path);
  return path;
}

}  // namespace

int PlayRoleOrRunTests(int argc, char** argv, std::initializer_list<Role> roles) {
  const std::string option = kOption;
  const std::string first = argc > 1 ? argv[1] : "";
  if (first.compare(0, option.size(), option) != 0) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
  }
  CloseHandle(CreateThread(nullptr, 0, EndLate, nullptr, 0, nullptr));
  const RoleArguments arguments(argv + 2, argv + argc);
  for (const Role& role : roles) {
    if (first == option + role.name) return static_cast<int>(role.play(arguments));
  }
  return static_cast<int>(kNoSuchRole);
}

RoleProcess::RoleProcess(const std::string& role, const RoleArguments& arguments) {
  const std::string path = OwnPath();
  std::string line = "\"" + path + "\" " + kOption + role;
  for (const std::string& argument : arguments) line += " " + argument;
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  const BOOL done = CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                   nullptr, &startup, &started);
  EXPECT_TRUE(done) << "process not started, error " << GetLastError();
  if (!done) return;
  CloseHandle(started.hThread);
  process_ = started.hProcess;
}

RoleProcess::~RoleProcess() {
  if (process_ == nullptr) return;
  if (WaitForSingleObject(process_, 0) == WAIT_TIMEOUT) Kill();
  CloseHandle(process_);
}

uint32_t RoleProcess::ExitCode() {
  EXPECT_EQ(WaitForSingleObject(process_, kPatienceMs), WAIT_OBJECT_0);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeProcess(process_, &code));
  return code;
}

void RoleProcess::Kill() {
  EXPECT_TRUE(TerminateProcess(process_, kKilled));
  EXPECT_EQ(WaitForSingleObject(process_, kPatienceMs), WAIT_OBJECT_0);
}

}  // namespace kiv::test
