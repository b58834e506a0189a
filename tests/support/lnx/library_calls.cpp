// Wrappers of calls that only single tests answer (answered_calls.h): further calls of the C library,
// and functions of the library itself that other sources of it call. CMake passes the names in this
// file to the linker (--wrap).
#include <cerrno>

#include "support/lnx/answered_calls.h"

namespace kiv::test {

// Defines the wrapper of a function that returns `failure` if it is refused. Its name for the test may
// differ from its symbol.
#define KIV_LIBRARY_CALL(name, symbol, failure)                                             \
  extern "C" Word __real_##symbol(Word, Word, Word, Word, Word, Word, Word);                \
  extern "C" Word __wrap_##symbol(Word a, Word b, Word c, Word d, Word e, Word f, Word g) { \
    Word word = failure;                                                                    \
    const Answer answer = AnswerTo(name, {a, b, c, d, e, f, g}, &word);                     \
    return answer == Answer::kPass ? __real_##symbol(a, b, c, d, e, f, g) : word;           \
  }

// ---- The C library ----

KIV_LIBRARY_CALL("clock", clock, -1)
KIV_LIBRARY_CALL("dladdr1", dladdr1, 0)
KIV_LIBRARY_CALL("dlclose", dlclose, -1)
KIV_LIBRARY_CALL("dlinfo", dlinfo, -1)
KIV_LIBRARY_CALL("getenv", getenv, 0)
KIV_LIBRARY_CALL("geteuid", geteuid, -1)
KIV_LIBRARY_CALL("getpid", getpid, -1)
KIV_LIBRARY_CALL("getsockopt", getsockopt, -1)
KIV_LIBRARY_CALL("io_uring_queue_init_params", io_uring_queue_init_params, -1)
KIV_LIBRARY_CALL("io_uring_submit", io_uring_submit, -1)
KIV_LIBRARY_CALL("malloc", malloc, 0)
KIV_LIBRARY_CALL("nanosleep", nanosleep, -1)
KIV_LIBRARY_CALL("pthread_join", pthread_join, ESRCH)
KIV_LIBRARY_CALL("pthread_mutex_init", pthread_mutex_init, ENOMEM)
KIV_LIBRARY_CALL("sigaction", sigaction, -1)
KIV_LIBRARY_CALL("sigpending", sigpending, -1)
KIV_LIBRARY_CALL("sigtimedwait", sigtimedwait, -1)
KIV_LIBRARY_CALL("syscall", syscall, -1)
KIV_LIBRARY_CALL("sysconf", sysconf, -1)
KIV_LIBRARY_CALL("uname", uname, -1)

// ---- The library's own functions ----

KIV_LIBRARY_CALL("BeginTransferOn", _ZN3kiv2os15BeginTransferOnEPv, 0)
KIV_LIBRARY_CALL("EndMutex", _ZN3kiv2os8EndMutexEPNS0_10OwnedMutexE, 0)
KIV_LIBRARY_CALL("EnterObject", _ZN3kiv2os11EnterObjectEPSt6atomicImEm, 0)
KIV_LIBRARY_CALL("IsPast", _ZN3kiv2os6IsPastERKNS0_8DeadlineE, 0)
KIV_LIBRARY_CALL("LeaveObject", _ZN3kiv2os11LeaveObjectEPSt6atomicImE, 0)
KIV_LIBRARY_CALL("MakeThreadHandle", _ZN3kiv2os16MakeThreadHandleEPNS0_6ThreadE, 0)
KIV_LIBRARY_CALL("RetireHandle", _ZN3kiv2os12RetireHandleEPNS0_4SlotEPKvNS0_4KindE, 0)
KIV_LIBRARY_CALL("ShouldLook", _ZN3kiv2os10ShouldLookEv, 0)
KIV_LIBRARY_CALL("SleepOn", _ZN3kiv2os7SleepOnEPKvjRKNS0_8DeadlineENS0_5ScopeE, 0)
KIV_LIBRARY_CALL("TakeSlot", _ZN3kiv2os8TakeSlotEv, 0)

}  // namespace kiv::test
