// Second processes of a test: the test program itself, started again to play a role.
//
// The program's own main says which roles there are:
//
//   int main(int argc, char** argv) {
//     return kiv::test::PlayRoleOrRunTests(argc, argv, {{"client", PlayClient}});
//   }
#ifndef KIV_TESTS_ROLE_PROCESS_H
#define KIV_TESTS_ROLE_PROCESS_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace kiv::test {

// Longest wait for anything that another process or thread should do at once.
constexpr uint32_t kPatienceMs = 30000;

// What a role does with its arguments; the result is the process's exit code. A role cannot fail
// the test: it says what went wrong by its exit code.
using RoleArguments = std::vector<std::string>;
struct Role {
  const char* name;
  uint32_t (*play)(const RoleArguments& arguments);
};

// Plays the role that the command line asks for, else runs the tests. A process that plays a role
// ends itself after a while, so that none outlives a test that was stopped.
int PlayRoleOrRunTests(int argc, char** argv, std::initializer_list<Role> roles);

// Another process in a role; it inherits every handle that can be inherited. Arguments are words
// without spaces and quotes.
class RoleProcess {
 public:
  explicit RoleProcess(const std::string& role, const RoleArguments& arguments = {});
  // Kills the process if it still runs.
  ~RoleProcess();
  RoleProcess(const RoleProcess&) = delete;
  RoleProcess& operator=(const RoleProcess&) = delete;

  // Waits for the end and gives the exit code. Fails the test when the process does not end.
  uint32_t ExitCode();

  // Ends the process as it stands, and waits until it is gone.
  void Kill();

 private:
  void* process_ = nullptr;
};

}  // namespace kiv::test

#endif
