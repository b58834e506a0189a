// Operations of the system that the library does not have: processes, renaming, sizes of files,
// the terminal, errors of pipes, environment variables. Each platform has a folder with its own
// source; nothing else calls the system.
//
// An OS error of 0 means success.
#ifndef CELLHOST_HOST_PLATFORM_H
#define CELLHOST_HOST_PLATFORM_H

#include <stdint.h>
#include <stdio.h>

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
  KivHandle output;   // its standard output; close it with CloseOutput
  uint32_t id;
  uint32_t osError;  // why the process was not started
};

// Starts a child process. It inherits this process's standard input and error output. The system
// ends the child when this process ends, even if this process is killed. One thread at a time, the
// program's first.
//
//   arguments  each terminated, one after another; an empty one ends them. The first one is the
//              path of the program
StartedProcess StartProcess(const char* arguments);

// Reads what a process has printed, without waiting for more.
//
// Returns the number of bytes read: 0 if nothing can be read now, or if the process has ended.
uint32_t ReadOutput(KivHandle output, char* buffer, uint32_t sizeBytes);
void CloseOutput(KivHandle output);

// The exit code of a process that has ended.
uint32_t ExitCodeOf(KivHandle process);
void CloseProcess(KivHandle process);

// Renames a file or a folder. Returns after the change has reached the device, if the file system
// supports waiting for it. Returns an OS error.
//
//   replace  replaces a file of the new name. At every moment the name refers to the complete old
//            file or the complete new one
uint32_t Rename(const char* path, const char* newPath, bool replace);

// Waits until the name of a file or a folder has reached the device, with all other names in its
// folder, if the file system supports waiting for it. Returns an OS error.
uint32_t FlushName(const char* path);

// The size of an open file in bytes; 0 for a file without a size, such as a device.
uint64_t SizeOf(FILE* file);

bool IsTerminal(FILE* file);

// OS errors of named pipes after which a program tries again.
struct PipeErrors {
  uint32_t missing;   // no process has made the pipe
  uint32_t timedOut;  // a wait for a free instance
  uint32_t busy;      // another client was faster
  uint32_t gone;      // the client left before the server accepted it
};
extern const PipeErrors kPipeErrors;

// Sets an environment variable of this process. Returns an OS error.
uint32_t SetVariable(const char* name, const char* value);

}  // namespace cellhost

#endif
