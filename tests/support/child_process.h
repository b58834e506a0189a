// Second processes for tests: a test program starts itself in a role.
//
// A program that links this has its main here. Started as PROGRAM --role=NAME ARGUMENT ... it runs
// the role of that name and ends with the role's result; started otherwise it runs its tests. A
// role may use the checks of a test: when one fails, the process ends with kRoleFailed instead.
#ifndef KIV_TESTS_CHILD_PROCESS_H
#define KIV_TESTS_CHILD_PROCESS_H

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::test {

using RoleArguments = std::vector<std::string>;
using Role = uint32_t (*)(const RoleArguments& arguments);

constexpr uint32_t kRoleDone = 41;      // not what a killed or a crashed process ends with
constexpr uint32_t kRoleFailed = 42;    // a check failed; the process has printed it
constexpr uint32_t kRoleUnknown = 43;   // the program has no such role
constexpr uint32_t kRoleOutlived = 45;  // the role went on long after any test would
constexpr uint32_t kKilled = 44;        // by ChildProcess::Kill
constexpr uint32_t kStillRunning = 259;

// const RegisteredRole holder("holder", [](const RoleArguments& arguments) { ... });
class RegisteredRole {
 public:
  RegisteredRole(const char* name, Role role);
};

// This program in a role. Fails the test when it cannot be started. What still runs when the test
// ends is killed.
class ChildProcess {
 public:
  explicit ChildProcess(const std::string& role, const RoleArguments& arguments = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void* handle() const { return process_; }
  uint32_t id() const { return id_; }

  // Whether the process ended within the time.
  bool EndsWithin(uint32_t timeoutMs) const;

  // Waits for the end and returns the exit code; fails the test and returns kStillRunning when
  // the process does not end.
  uint32_t ExitCode() const;

  void Kill() const;

 private:
  void* process_ = nullptr;
  uint32_t id_ = 0;
};

// A signal that processes share by name; who waits takes it.
class SharedSignal {
 public:
  explicit SharedSignal(const std::string& name);
  ~SharedSignal();
  SharedSignal(const SharedSignal&) = delete;
  SharedSignal& operator=(const SharedSignal&) = delete;

  const std::string& name() const { return name_; }
  void Set() const;
  // Fails the test when the signal does not come.
  void Await() const;

 private:
  std::string name_;
  void* event_;
};

}  // namespace kiv::test

#endif
