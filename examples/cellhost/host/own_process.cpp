// This process and its children. Only this file and storage/rename_file.cpp call the operating
// system directly.
#include "host/own_process.h"

#include <windows.h>

namespace cellhost {
namespace {

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

}  // namespace

KivHandle OwnProcess() { return GetCurrentProcess(); }

bool OwnProgram(char* path, uint32_t sizeBytes) {
  const DWORD length = GetModuleFileNameA(nullptr, path, sizeBytes);
  return length != 0 && length < sizeBytes;
}

StartedProcess StartProcess(char* commandLine, KivHandle output) {
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
    return {.process = nullptr, .id = 0, .osError = GetLastError()};
  }
  CloseHandle(made.hThread);
  PutIntoJob(made.hProcess);
  return {.process = made.hProcess, .id = made.dwProcessId, .osError = 0};
}

uint32_t ExitCodeOf(KivHandle process) {
  DWORD exitCode = 0;
  GetExitCodeProcess(process, &exitCode);
  return exitCode;
}

void CloseProcess(KivHandle process) { CloseHandle(process); }

}  // namespace cellhost
