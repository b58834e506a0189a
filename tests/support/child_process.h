// Child processes for tests: a test program starts itself in a role.
//
// This file has the main of a program that links it. Started as PROGRAM --role=NAME ARGUMENT ...,
// the program runs the role of that name and exits with the role's result. Otherwise it runs its
// tests. A role may use the checks of a test; if one fails, the process exits with kRoleFailed.
#ifndef KIV_TESTS_CHILD_PROCESS_H
#define KIV_TESTS_CHILD_PROCESS_H

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::test {

using RoleArguments = std::vector<std::string>;
using Role = uint32_t (*)(const RoleArguments& arguments);

constexpr uint32_t kRoleDone = 41;      // not an exit code of a killed or crashed process
constexpr uint32_t kRoleFailed = 42;    // a check failed; the process has printed it
constexpr uint32_t kRoleUnknown = 43;   // the program has no such role
constexpr uint32_t kRoleOutlived = 45;  // the role ran longer than any test
constexpr uint32_t kKilled = 44;        // ChildProcess::Kill ended the process
constexpr uint32_t kStillRunning = 259;

// Null if there is no such role.
Role FindRole(const std::string& name);

// const RegisteredRole holder("holder", [](const RoleArguments& arguments) { ... });
class RegisteredRole {
 public:
  RegisteredRole(const char* name, Role role);
};

// This program, started in a role. Fails the test if it cannot be started. The destructor kills a
// process that still runs. The handle is one that the library's operations on processes accept.
class ChildProcess {
 public:
  explicit ChildProcess(const std::string& role, const RoleArguments& arguments = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void* handle() const { return process_; }
  uint32_t id() const { return id_; }

  // Waits up to `timeoutMs`. Whether the process has ended.
  bool EndsWithin(uint32_t timeoutMs) const;

  // Waits until the process ends and returns its exit code. If it does not end, fails the test and
  // returns kStillRunning.
  uint32_t ExitCode() const;

  void Kill() const;

 private:
  friend class InheritingChild;
  ChildProcess() = default;

  void* process_ = nullptr;
  uint32_t id_ = 0;
};

// A child process that inherits one end of a pipe and runs a role with {handle of the end}. Natively
// it is a fork of this process, which inherits the other end too: the role gets {end, other end} and
// closes the latter first. The destructor kills a process that still runs.
class InheritingChild {
 public:
  InheritingChild(const std::string& role, void* end, void* other);
  ~InheritingChild();
  InheritingChild(const InheritingChild&) = delete;
  InheritingChild& operator=(const InheritingChild&) = delete;

  uint32_t ExitCode() const;
  void Kill() const;

 private:
  ChildProcess* process_;
};

// A signal that processes share by name. A wait that succeeds clears it.
class SharedSignal {
 public:
  explicit SharedSignal(const std::string& name);
  ~SharedSignal();
  SharedSignal(const SharedSignal&) = delete;
  SharedSignal& operator=(const SharedSignal&) = delete;

  const std::string& name() const { return name_; }
  void Set() const;
  // Fails the test if the signal is not set in time.
  void Await() const;

 private:
  std::string name_;
  void* event_;
  bool owner_ = false;  // natively: whether this object made the name
};

}  // namespace kiv::test

#endif
