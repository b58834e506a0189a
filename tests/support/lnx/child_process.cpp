#include "support/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <semaphore.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "support/own_process.h"
#include "support/waiting.h"

namespace kiv::test {
namespace {

// The handle of a process is its identifier, as the library has it on this platform.
pid_t IdOf(void* process) { return static_cast<pid_t>(reinterpret_cast<intptr_t>(process)); }

sem_t* Semaphore(void* event) { return static_cast<sem_t*>(event); }

}  // namespace

uint32_t OwnProcessId() { return static_cast<uint32_t>(getpid()); }

void EndOwnProcessAfter(uint32_t delayMs, uint32_t exitCode) {
  std::thread([delayMs, exitCode] {
    std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
    _exit(static_cast<int>(exitCode));
  }).detach();
}

ChildProcess::ChildProcess(const std::string& role, const RoleArguments& arguments) {
  std::vector<std::string> words = {"/proc/self/exe", "--role=" + role};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  pid_t id = 0;
  const int error = posix_spawn(&id, words[0].c_str(), nullptr, nullptr, pointers.data(), environ);
  if (error != 0) {
    ADD_FAILURE() << "cannot start " << words[1] << ": " << std::strerror(error);
    return;
  }
  process_ = reinterpret_cast<void*>(static_cast<intptr_t>(id));
  id_ = static_cast<uint32_t>(id);
}

ChildProcess::~ChildProcess() {
  if (id_ == 0) return;
  if (!EndsWithin(0)) Kill();
  waitpid(IdOf(process_), nullptr, 0);
}

bool ChildProcess::EndsWithin(uint32_t timeoutMs) const {
  const auto file = static_cast<int>(syscall(SYS_pidfd_open, IdOf(process_), 0));
  pollfd ended = {file, POLLIN, 0};
  const int count = poll(&ended, 1, static_cast<int>(timeoutMs));
  close(file);
  return count == 1;
}

// The process stays a zombie until the destructor, so that its identifier names nothing else.
uint32_t ChildProcess::ExitCode() const {
  EXPECT_TRUE(EndsWithin(kLimitMs)) << "the process does not end";
  siginfo_t info = {};
  EXPECT_EQ(waitid(P_PID, id_, &info, WEXITED | WNOHANG | WNOWAIT), 0);
  if (info.si_pid == 0) return kStillRunning;
  if (info.si_code == CLD_EXITED) return static_cast<uint32_t>(info.si_status);
  return info.si_status == SIGKILL ? kKilled : 128 + static_cast<uint32_t>(info.si_status);
}

void ChildProcess::Kill() const {
  kill(IdOf(process_), SIGKILL);
  EndsWithin(kLimitMs);
}

InheritingChild::InheritingChild(const std::string& role, void* end, void* other)
    : process_(new ChildProcess) {
  const Role run = FindRole(role);
  const pid_t id = fork();
  if (id == 0) {
    constexpr unsigned kLongestRoleSeconds = 90;
    alarm(kLongestRoleSeconds);
    _exit(static_cast<int>(run({std::to_string(reinterpret_cast<uintptr_t>(end)),
                                std::to_string(reinterpret_cast<uintptr_t>(other))})));
  }
  EXPECT_GT(id, 0);
  process_->process_ = reinterpret_cast<void*>(static_cast<intptr_t>(id));
  process_->id_ = static_cast<uint32_t>(id);
}

// Both processes open the semaphore of this name; the one that made it removes the name.
SharedSignal::SharedSignal(const std::string& name) : name_(name) {
  const std::string path = "/" + name;
  void* made = sem_open(path.c_str(), O_CREAT | O_EXCL, 0600, 0);
  owner_ = made != SEM_FAILED;
  event_ = owner_ ? made : sem_open(path.c_str(), 0);
  EXPECT_NE(event_, SEM_FAILED) << name << ": " << errno;
}

SharedSignal::~SharedSignal() {
  sem_close(Semaphore(event_));
  if (owner_) sem_unlink(("/" + name_).c_str());
}

void SharedSignal::Set() const {
  int value = 0;
  EXPECT_EQ(sem_getvalue(Semaphore(event_), &value), 0) << name_;
  if (value != 0) return;
  EXPECT_EQ(sem_post(Semaphore(event_)), 0) << name_;
}

void SharedSignal::Await() const {
  timespec limit = {};
  clock_gettime(CLOCK_MONOTONIC, &limit);
  limit.tv_sec += kLimitMs / 1000;
  int waited;
  do {
    waited = sem_clockwait(Semaphore(event_), CLOCK_MONOTONIC, &limit);
  } while (waited == -1 && errno == EINTR);
  EXPECT_EQ(waited, 0) << name_ << " does not come";
}

}  // namespace kiv::test
