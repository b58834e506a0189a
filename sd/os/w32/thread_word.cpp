#include "os/thread_word.h"

// What every thread's copy is made from; the word itself is never used.
#ifdef _MSC_VER
#pragma section(".tls$", read, write)
#define KIV_THREAD_LOCAL __declspec(allocate(".tls$"))
#else
#define KIV_THREAD_LOCAL __attribute__((section(".tls$")))
#endif

KIV_THREAD_LOCAL void* kivThreadWord = nullptr;
