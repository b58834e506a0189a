#include "support/child_process.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>

#include "support/own_process.h"
#include "support/waiting.h"

namespace kiv::test {
namespace {

constexpr uint32_t kLongestRoleMs = 90000;  // some roles wait until they are killed
constexpr char kRoleFlag[] = "--role=";

// Created on first use, because roles register before main and in any order.
std::map<std::string, Role>& Roles() {
  static std::map<std::string, Role> roles;
  return roles;
}

uint32_t PlayRole(const std::string& name, const RoleArguments& arguments) {
  const Role role = FindRole(name);
  if (role == nullptr) return kRoleUnknown;
  EndOwnProcessAfter(kLongestRoleMs, kRoleOutlived);
  const uint32_t result = role(arguments);
  // GoogleTest collects the failures of checks outside a test here.
  const bool failed = testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
  return failed ? kRoleFailed : result;
}

}  // namespace

Role FindRole(const std::string& name) {
  const auto found = Roles().find(name);
  return found != Roles().end() ? found->second : nullptr;
}

RegisteredRole::RegisteredRole(const char* name, Role role) { Roles()[name] = role; }

InheritingChild::~InheritingChild() { delete process_; }

uint32_t InheritingChild::ExitCode() const { return process_->ExitCode(); }

void InheritingChild::Kill() const { process_->Kill(); }

std::string UniqueName(const std::string& prefix) {
  static std::atomic<uint32_t> number{0};
  return prefix + "-" + std::to_string(OwnProcessId()) + "-" + std::to_string(++number);
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
