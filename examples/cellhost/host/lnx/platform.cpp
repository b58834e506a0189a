// Linux: see platform.h. The handle of a process is its identifier, as the library has it.
#include "host/platform.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "host/host_memory.h"

namespace cellhost {
namespace {

constexpr char kSourceArguments[] = "cellhost/platform arguments";
constexpr int kExitNotStarted = 127;

uint32_t Error() { return static_cast<uint32_t>(errno); }

StartedProcess NotStarted(uint32_t error) {
  return {.process = nullptr, .output = nullptr, .id = 0, .osError = error};
}

int DescriptorOf(KivHandle output) { return static_cast<int>(reinterpret_cast<intptr_t>(output)); }
pid_t IdOf(KivHandle process) { return static_cast<pid_t>(reinterpret_cast<intptr_t>(process)); }
KivHandle HandleOf(int number) { return reinterpret_cast<void*>(static_cast<intptr_t>(number)); }

// A pipe whose ends no other program inherits.
struct Pipe {
  bool Open() { return pipe2(ends, O_CLOEXEC) == 0; }
  ~Pipe() {
    CloseEnd(0);
    CloseEnd(1);
  }
  void CloseEnd(int end) {
    if (ends[end] != -1) close(ends[end]);
    ends[end] = -1;
  }
  int Take(int end) {
    const int taken = ends[end];
    ends[end] = -1;
    return taken;
  }

  int ends[2] = {-1, -1};
};

bool MakePointers(const char* arguments, HostArray<char*>* pointers) {
  for (const char* argument = arguments; *argument != '\0'; argument += strlen(argument) + 1) {
    if (!pointers->Append(const_cast<char*>(argument))) return false;
  }
  return pointers->Append(nullptr);
}

// In the child, which has only this thread: becomes the program, or sends the reason to the parent.
[[noreturn]] void Become(const char* program, char* const* arguments, pid_t parent, int output,
                         int reasons) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have ended before that.
  if (getppid() == parent && dup2(output, STDOUT_FILENO) != -1) execv(program, arguments);
  const int reason = errno;
  static_cast<void>(!write(reasons, &reason, sizeof reason));
  _exit(kExitNotStarted);
}

// The pipe ends without a reason if the child became the program.
int AwaitReason(int reasons) {
  int reason = 0;
  ssize_t count;
  do {
    count = read(reasons, &reason, sizeof reason);
  } while (count == -1 && errno == EINTR);
  return count == sizeof reason ? reason : 0;
}

void Reap(pid_t process) {
  while (waitpid(process, nullptr, 0) == -1 && errno == EINTR) {
  }
}

// The folder that has the name; a slash behind the name does not count.
std::string FolderOf(const std::string& path) {
  const size_t last = path.find_last_not_of('/');
  const size_t slash = last == path.npos ? path.npos : path.find_last_of('/', last);
  if (slash == path.npos) return path.empty() || path[0] != '/' ? "." : "/";
  return path.substr(0, slash + 1);
}

}  // namespace

KivHandle OwnProcess() { return HandleOf(-1); }

bool OwnProgram(char* path, uint32_t sizeBytes) {
  const ssize_t length = readlink("/proc/self/exe", path, sizeBytes);
  if (length < 0 || static_cast<uint32_t>(length) >= sizeBytes) return false;
  path[length] = '\0';
  return true;
}

StartedProcess StartProcess(const char* arguments) {
  HostArray<char*> pointers(kSourceArguments);
  if (!MakePointers(arguments, &pointers)) return NotStarted(ENOMEM);
  Pipe output;
  Pipe reasons;
  if (!output.Open() || !reasons.Open()) return NotStarted(Error());
  fflush(stdout);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == -1) return NotStarted(Error());
  if (child == 0) Become(arguments, pointers.data(), parent, output.ends[1], reasons.ends[1]);
  reasons.CloseEnd(1);
  const int reason = AwaitReason(reasons.ends[0]);
  if (reason != 0) {
    Reap(child);
    return NotStarted(static_cast<uint32_t>(reason));
  }
  fcntl(output.ends[0], F_SETFL, O_NONBLOCK);
  return {.process = HandleOf(child),
          .output = HandleOf(output.Take(0)),
          .id = static_cast<uint32_t>(child),
          .osError = 0};
}

uint32_t ReadOutput(KivHandle output, char* buffer, uint32_t sizeBytes) {
  const ssize_t count = read(DescriptorOf(output), buffer, sizeBytes);
  return count > 0 ? static_cast<uint32_t>(count) : 0;
}

void CloseOutput(KivHandle output) { close(DescriptorOf(output)); }

// The process keeps its identifier until CloseProcess.
uint32_t ExitCodeOf(KivHandle process) {
  constexpr uint32_t kKilled = 1;
  siginfo_t info = {};
  const auto id = static_cast<id_t>(IdOf(process));
  while (waitid(P_PID, id, &info, WEXITED | WNOWAIT) == -1 && errno == EINTR) {
  }
  return info.si_code == CLD_EXITED ? static_cast<uint32_t>(info.si_status) : kKilled;
}

void CloseProcess(KivHandle process) { Reap(IdOf(process)); }

uint32_t Rename(const char* path, const char* newPath, bool replace) {
  const unsigned how = replace ? 0 : RENAME_NOREPLACE;
  if (renameat2(AT_FDCWD, path, AT_FDCWD, newPath, how) != 0) return Error();
  return FlushName(newPath);
}

uint32_t FlushName(const char* path) {
  const int folder = open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder == -1) return Error();
  // EINVAL: the file system cannot wait.
  const uint32_t error = fsync(folder) == 0 || errno == EINVAL ? 0 : Error();
  close(folder);
  return error;
}

uint64_t SizeOf(FILE* file) {
  struct stat status = {};
  return fstat(fileno(file), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

const PipeErrors kPipeErrors = {
    .missing = ENOENT, .timedOut = ETIMEDOUT, .busy = EBUSY, .gone = ENODATA};

bool IsTerminal(FILE* file) { return isatty(fileno(file)) == 1; }

uint32_t SetVariable(const char* name, const char* value) {
  constexpr int kOverwrite = 1;
  return setenv(name, value, kOverwrite) == 0 ? 0 : Error();
}

}  // namespace cellhost
