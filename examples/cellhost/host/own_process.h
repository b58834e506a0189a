// What the example asks the operating system itself, as the library has no operation for it: the
// handle and the program of this process, and starting others.
#ifndef CELLHOST_HOST_OWN_PROCESS_H
#define CELLHOST_HOST_OWN_PROCESS_H

#include <stdint.h>

#include "kivsdu/api.h"

namespace cellhost {

// Not to be closed. Any thread.
KivHandle OwnProcess();

// The path of this program.
//
//   path  receives it
//
// False if it does not fit into sizeBytes.
bool OwnProgram(char* path, uint32_t sizeBytes);

struct StartedProcess {
  KivHandle process;  // to be closed with CloseProcess; null if it was not started
  uint32_t id;
  uint32_t osError;  // why it was not started
};

// Starts a process that shares this one's standard input and error output. It is ended when this
// process ends, however that happens, so that none is left behind. One thread at a time: the
// output's handle can be inherited from here on, and the caller closes it before it starts
// another process.
//
//   commandLine  changed by the system while it is read
//   output       the process's standard output
StartedProcess StartProcess(char* commandLine, KivHandle output);

// What a process that has ended returned.
uint32_t ExitCodeOf(KivHandle process);

void CloseProcess(KivHandle process);

}  // namespace cellhost

#endif
