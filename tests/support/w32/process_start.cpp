// On a busy machine Wine sometimes fails to start a process, and the next try succeeds. GoogleTest
// starts the processes of death tests itself. It would end the test at such a failure, and write the
// reason into the stream that it captures, where nobody sees it. The linker therefore redirects the
// imported function of every test program.
#include <windows.h>

namespace {

constexpr int kMaxTries = 3;

}  // namespace

extern "C" {

extern decltype(CreateProcessA)* __real___imp_CreateProcessA;

static BOOL WINAPI StartAfterFailures(LPCSTR program, LPSTR commandLine,
                                      LPSECURITY_ATTRIBUTES process, LPSECURITY_ATTRIBUTES thread,
                                      BOOL inheritHandles, DWORD flags, LPVOID environment,
                                      LPCSTR folder, LPSTARTUPINFOA startup,
                                      LPPROCESS_INFORMATION made) {
  BOOL started = FALSE;
  for (int tries = 0; !started && tries < kMaxTries; ++tries) {
    started = __real___imp_CreateProcessA(program, commandLine, process, thread, inheritHandles,
                                          flags, environment, folder, startup, made);
  }
  return started;
}

decltype(CreateProcessA)* __wrap___imp_CreateProcessA = StartAfterFailures;

}  // extern "C"
