// Wrappers of the calls of the C library that the Linux bindings make, so that a test can answer them
// (answered_calls.h) and the fault loops can fail them. CMake passes the names in this
// file to the linker (--wrap).
//
// On this platform a variadic function takes its arguments in the registers of any other, so that one
// form of wrapper serves all functions with at most six integers or pointers.
#include <sys/mman.h>

#include <cerrno>

#include "support/lnx/answered_calls.h"

namespace kiv::test {
namespace {

// Whether a plan or a test answers the call. The answer is in `word`, which is unchanged if the call
// fails.
bool IsAnswered(const char* call, const Words& arguments, Word* word) {
  return IsFault(call) || AnswerTo(call, arguments, word) != Answer::kPass;
}

}  // namespace

// Defines the wrapper of a call that returns `failure` and sets errno.
#define KIV_SYSTEM_CALL(call, failure)                                            \
  extern "C" Word __real_##call(Word, Word, Word, Word, Word, Word);              \
  extern "C" Word __wrap_##call(Word a, Word b, Word c, Word d, Word e, Word f) { \
    Word word = failure;                                                          \
    if (IsAnswered(#call, {a, b, c, d, e, f}, &word)) return word;                \
    return __real_##call(a, b, c, d, e, f);                                       \
  }

// As above for a call that takes effect in spite of its failure, as closing a descriptor does.
#define KIV_SYSTEM_RELEASE(call)                                                  \
  extern "C" Word __real_##call(Word, Word, Word, Word, Word, Word);              \
  extern "C" Word __wrap_##call(Word a, Word b, Word c, Word d, Word e, Word f) { \
    const Word returned = __real_##call(a, b, c, d, e, f);                        \
    Word word = -1;                                                               \
    return IsAnswered(#call, {a, b, c, d, e, f}, &word) ? word : returned;        \
  }

// As above for a call that returns its error.
#define KIV_SYSTEM_CODE(call)                                                     \
  extern "C" Word __real_##call(Word, Word, Word, Word, Word, Word);              \
  extern "C" Word __wrap_##call(Word a, Word b, Word c, Word d, Word e, Word f) { \
    Word word = -1;                                                               \
    if (!IsAnswered(#call, {a, b, c, d, e, f}, &word)) {                          \
      return __real_##call(a, b, c, d, e, f);                                     \
    }                                                                             \
    return word == -1 ? errno : word;                                             \
  }

// As above for a call that returns a new block of the runtime.
#define KIV_SYSTEM_BLOCK(call)                            \
  extern "C" void* __real_##call(Word, Word);             \
  extern "C" void* __wrap_##call(Word a, Word b) {        \
    Word word = 0;                                        \
    if (IsAnswered(#call, {a, b}, &word)) return nullptr; \
    void* block = __real_##call(a, b);                    \
    if (block != nullptr) NoteBlock();                    \
    return block;                                         \
  }

KIV_SYSTEM_CALL(access, -1)
KIV_SYSTEM_CALL(accept4, -1)
KIV_SYSTEM_CALL(bind, -1)
KIV_SYSTEM_CALL(chdir, -1)
KIV_SYSTEM_CALL(chmod, -1)
KIV_SYSTEM_CALL(connect, -1)
KIV_SYSTEM_CALL(dlopen, 0)
KIV_SYSTEM_CALL(eventfd, -1)
KIV_SYSTEM_CALL(faccessat, -1)
KIV_SYSTEM_CALL(fallocate, -1)
KIV_SYSTEM_CALL(fcntl, -1)
KIV_SYSTEM_CALL(fdopendir, 0)
KIV_SYSTEM_CALL(flock, -1)
KIV_SYSTEM_CALL(fstat, -1)
KIV_SYSTEM_CALL(fstatat, -1)
KIV_SYSTEM_CALL(fstatfs, -1)
KIV_SYSTEM_CALL(fsync, -1)
KIV_SYSTEM_CALL(ftruncate, -1)
KIV_SYSTEM_CALL(getcwd, 0)
KIV_SYSTEM_CALL(getpriority, -1)
KIV_SYSTEM_CALL(ioctl, -1)
KIV_SYSTEM_CALL(isatty, 0)
KIV_SYSTEM_CALL(kill, -1)
KIV_SYSTEM_CALL(link, -1)
KIV_SYSTEM_CALL(listen, -1)
KIV_SYSTEM_CALL(localtime_r, 0)
KIV_SYSTEM_CALL(lseek, -1)
KIV_SYSTEM_CALL(lstat, -1)
KIV_SYSTEM_CALL(mkdir, -1)
KIV_SYSTEM_CALL(mlock, -1)
KIV_SYSTEM_CALL(mmap, -1)
KIV_SYSTEM_CALL(open, -1)
KIV_SYSTEM_CALL(openat, -1)
KIV_SYSTEM_CALL(opendir, 0)
KIV_SYSTEM_CALL(pipe2, -1)
KIV_SYSTEM_CALL(poll, -1)
KIV_SYSTEM_CALL(ppoll, -1)
KIV_SYSTEM_CALL(pread, -1)
KIV_SYSTEM_CALL(prlimit, -1)
KIV_SYSTEM_CALL(pwrite, -1)
KIV_SYSTEM_CALL(pwritev2, -1)
KIV_SYSTEM_CALL(read, -1)
KIV_SYSTEM_CALL(readdir, 0)
KIV_SYSTEM_CALL(readlink, -1)
KIV_SYSTEM_CALL(recv, -1)
KIV_SYSTEM_CALL(recvmsg, -1)
KIV_SYSTEM_CALL(renameat, -1)
KIV_SYSTEM_CALL(rmdir, -1)
KIV_SYSTEM_CALL(sched_getaffinity, -1)
KIV_SYSTEM_CALL(send, -1)
KIV_SYSTEM_CALL(setpriority, -1)
KIV_SYSTEM_CALL(setsockopt, -1)
KIV_SYSTEM_CALL(socket, -1)
KIV_SYSTEM_CALL(stat, -1)
KIV_SYSTEM_CALL(statvfs, -1)
KIV_SYSTEM_CALL(sysinfo, -1)
KIV_SYSTEM_CALL(tcgetattr, -1)
KIV_SYSTEM_CALL(tcgetpgrp, -1)
KIV_SYSTEM_CALL(tcsetattr, -1)
KIV_SYSTEM_CALL(tee, -1)
KIV_SYSTEM_CALL(unlink, -1)
KIV_SYSTEM_CALL(unlinkat, -1)
KIV_SYSTEM_CALL(write, -1)

KIV_SYSTEM_RELEASE(close)
KIV_SYSTEM_RELEASE(munlock)
KIV_SYSTEM_RELEASE(munmap)
KIV_SYSTEM_RELEASE(shutdown)

KIV_SYSTEM_CODE(getpwuid_r)
KIV_SYSTEM_CODE(posix_fallocate)
KIV_SYSTEM_CODE(pthread_attr_setstacksize)
KIV_SYSTEM_CODE(pthread_create)
KIV_SYSTEM_CODE(pthread_key_create)
KIV_SYSTEM_CODE(pthread_setspecific)

KIV_SYSTEM_BLOCK(calloc)
KIV_SYSTEM_BLOCK(realpath)
KIV_SYSTEM_BLOCK(strdup)

}  // namespace kiv::test
