// Operations that the library does not have: the handle and the path of this process, and starting
// child processes.
#ifndef CELLHOST_HOST_OWN_PROCESS_H
#define CELLHOST_HOST_OWN_PROCESS_H

#include <stdint.h>

#include "kivsdu/api.h"

namespace cellhost {

// The handle of this process; must not be closed. Any thread.
KivHandle OwnProcess();

// Stores the path of this program.
//
//   path  receives the path
//
// Returns false if the path does not fit into sizeBytes.
bool OwnProgram(char* path, uint32_t sizeBytes);

struct StartedProcess {
  KivHandle process;  // close it with CloseProcess; null if the process was not started
  uint32_t id;
  uint32_t osError;  // why the process was not started
};

// Starts a child process. It inherits this process's standard input and error output. The system
// ends the child when this process ends, even if this process is killed.
//
// One thread at a time: the output handle becomes inheritable, and the caller must close it before
// starting another child.
//
//   commandLine  the system modifies it during the call
//   output       the child's standard output
StartedProcess StartProcess(char* commandLine, KivHandle output);

// The exit code of a process that has ended.
uint32_t ExitCodeOf(KivHandle process);

void CloseProcess(KivHandle process);

}  // namespace cellhost

#endif
