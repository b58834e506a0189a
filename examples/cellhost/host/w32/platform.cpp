// Windows: see platform.h.
#include "host/platform.h"

#include <windows.h>

#include <errno.h>
#include <io.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "host/host_memory.h"
#include "host/thread_record.h"
#include "kivsdu/pipe.h"

namespace cellhost {
namespace {

constexpr char kSourceCommandLine[] = "cellhost/platform command line";
constexpr uint32_t kPipeBytes = 64 * 1024;

// A job: when this process ends, its last handle is closed and the system ends all processes of the
// job. If the system refuses to make a job, the children of a killed parent keep running.
HANDLE MakeJob() {
  HANDLE job = CreateJobObjectA(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

void PutIntoJob(HANDLE process) {
  static const HANDLE job = MakeJob();
  AssignProcessToJobObject(job, process);
}

// ---- The command line ----

bool Append(HostArray<char>* text, uint32_t count, char c) {
  return text->Resize(text->count() + count, c);
}

// Appends an argument in quotes, by the C runtime's rules for parsing a command line: in front of a
// quote, each backslash is doubled, and one more escapes the quote; elsewhere a backslash is plain.
bool AppendArgument(const char* argument, HostArray<char>* commandLine) {
  if (commandLine->count() != 0 && !Append(commandLine, 1, ' ')) return false;
  if (!Append(commandLine, 1, '"')) return false;
  uint32_t backslashes = 0;  // number of backslashes directly before `c`
  for (const char* c = argument; *c != '\0'; ++c) {
    if (*c == '"' && !Append(commandLine, backslashes + 1, '\\')) return false;
    if (!Append(commandLine, 1, *c)) return false;
    backslashes = *c == '\\' ? backslashes + 1 : 0;
  }
  return Append(commandLine, backslashes, '\\') && Append(commandLine, 1, '"');
}

bool MakeCommandLine(const char* arguments, HostArray<char>* commandLine) {
  for (const char* argument = arguments; *argument != '\0'; argument += strlen(argument) + 1) {
    if (!AppendArgument(argument, commandLine)) return false;
  }
  return Append(commandLine, 1, '\0');
}

// The system modifies the command line during the call.
StartedProcess StartOn(char* commandLine, KivHandle output) {
  SetHandleInformation(output, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = output;
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  constexpr BOOL kInheritHandles = TRUE;
  PROCESS_INFORMATION made = {};
  if (CreateProcessA(nullptr, commandLine, nullptr, nullptr, kInheritHandles, 0, nullptr, nullptr,
                     &startup, &made) == 0) {
    return {.process = nullptr, .output = nullptr, .id = 0, .osError = GetLastError()};
  }
  CloseHandle(made.hThread);
  PutIntoJob(made.hProcess);
  return {.process = made.hProcess, .output = nullptr, .id = made.dwProcessId, .osError = 0};
}

}  // namespace

KivHandle OwnProcess() { return GetCurrentProcess(); }

bool OwnProgram(char* path, uint32_t sizeBytes) {
  const DWORD length = GetModuleFileNameA(nullptr, path, sizeBytes);
  return length != 0 && length < sizeBytes;
}

StartedProcess StartProcess(const char* arguments) {
  HostArray<char> commandLine(kSourceCommandLine);
  KivSdContext* ctx = ThisContext();
  KivHandle readEnd = nullptr;
  KivHandle writeEnd = nullptr;
  if (!MakeCommandLine(arguments, &commandLine) ||
      KivSdPipeCreate(ctx, &readEnd, &writeEnd, kPipeBytes) != 0) {
    return {.process = nullptr, .output = nullptr, .id = 0, .osError = ERROR_OUTOFMEMORY};
  }
  StartedProcess started = StartOn(commandLine.data(), writeEnd);
  // The child has its own handle. While this one is open, the pipe would never end.
  KivSdPipeClose(ctx, &writeEnd);
  if (started.process != nullptr) {
    started.output = readEnd;
  } else {
    KivSdPipeClose(ctx, &readEnd);
  }
  return started;
}

uint32_t ReadOutput(KivHandle output, char* buffer, uint32_t sizeBytes) {
  KivSdContext* ctx = ThisContext();
  uint32_t availableBytes = 0;
  uint32_t readBytes = 0;
  if (KivSdNamedPipePeek(ctx, &output, 0, nullptr, nullptr, &availableBytes, nullptr) != 0 ||
      availableBytes == 0) {
    return 0;
  }
  KivSdPipeRead(ctx, &output, buffer, std::min(availableBytes, sizeBytes), &readBytes);
  return readBytes;
}

void CloseOutput(KivHandle output) { KivSdPipeClose(ThisContext(), &output); }

uint32_t ExitCodeOf(KivHandle process) {
  DWORD exitCode = 0;
  GetExitCodeProcess(process, &exitCode);
  return exitCode;
}

void CloseProcess(KivHandle process) { CloseHandle(process); }

// The system refuses to replace folders, therefore the flag is set only if it is asked for.
uint32_t Rename(const char* path, const char* newPath, bool replace) {
  const DWORD how = MOVEFILE_WRITE_THROUGH | (replace ? MOVEFILE_REPLACE_EXISTING : 0);
  return MoveFileExA(path, newPath, how) != 0 ? 0 : GetLastError();
}

// NTFS logs all changes of names in their order, and a flush of any file writes the log.
uint32_t FlushName(const char* /*path*/) { return 0; }

uint64_t SizeOf(FILE* file) {
  const int64_t sizeBytes = _filelengthi64(_fileno(file));
  return sizeBytes < 0 ? 0 : static_cast<uint64_t>(sizeBytes);
}

const PipeErrors kPipeErrors = {.missing = ERROR_FILE_NOT_FOUND,
                                .timedOut = ERROR_SEM_TIMEOUT,
                                .busy = ERROR_PIPE_BUSY,
                                .gone = ERROR_NO_DATA};

bool IsTerminal(FILE* file) { return _isatty(_fileno(file)) != 0; }

uint32_t SetVariable(const char* name, const char* value) {
  return static_cast<uint32_t>(_putenv_s(name, value));
}

}  // namespace cellhost
