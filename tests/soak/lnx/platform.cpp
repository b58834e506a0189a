#include "soak/platform.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "os/lnx/name_folder.h"
#include "soak/check.h"

namespace kiv::soak {
namespace {

pid_t IdOf(void* process) { return static_cast<pid_t>(reinterpret_cast<intptr_t>(process)); }

}  // namespace

const char kSystemModule[] = "libm.so.6";
const char kSystemModuleEntry[] = "cos";

uint32_t OwnProcessId() { return static_cast<uint32_t>(getpid()); }

void SetVariable(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }

std::vector<std::string> LeftNames(const std::string& prefix) {
  std::vector<std::string> names;
  char path[PATH_MAX];
  Expect(os::NameFolderPath(path, sizeof path).ok, "the folder of names has a path");
  DIR* folder = opendir(path);
  if (folder == nullptr) return names;
  constexpr size_t kPurpose = 2;  // such as "o-"
  while (const dirent* entry = readdir(folder)) {
    if (std::strlen(entry->d_name) < kPurpose) continue;
    const std::string name = entry->d_name + kPurpose;
    if (name.compare(0, prefix.size(), prefix) == 0) names.push_back(name);
  }
  closedir(folder);
  return names;
}

Process::Process(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {"/proc/self/exe"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t id = 0;
  const int error = posix_spawn(&id, words[0].c_str(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  Expect(error == 0, "a process can be started");
  process_ = reinterpret_cast<void*>(static_cast<intptr_t>(id));
}

Process::~Process() {
  if (process_ == nullptr) return;
  Kill();
  waitpid(IdOf(process_), nullptr, 0);
}

void Process::Kill() { kill(IdOf(process_), SIGKILL); }

bool Process::EndsWithin(uint32_t timeoutMs, int* exitCode) {
  const auto file = static_cast<int>(syscall(SYS_pidfd_open, IdOf(process_), 0));
  pollfd ended = {file, POLLIN, 0};
  const int count = poll(&ended, 1, static_cast<int>(timeoutMs));
  close(file);
  if (count != 1) return false;
  int status = 0;
  waitpid(IdOf(process_), &status, 0);
  process_ = nullptr;
  *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return true;
}

}  // namespace kiv::soak
