#ifndef KIV_MSVC_STDLIB_H
#define KIV_MSVC_STDLIB_H

#include <corecrt.h>

#define EXIT_SUCCESS 0
#define EXIT_FAILURE 1

typedef void(__cdecl* _invalid_parameter_handler)(const wchar_t* expression,
                                                  const wchar_t* function, const wchar_t* source,
                                                  unsigned line, uintptr_t reserved);

KIV_CRT _invalid_parameter_handler
_set_thread_local_invalid_parameter_handler(_invalid_parameter_handler handler);

KIV_CRT void* malloc(size_t size);
KIV_CRT void* calloc(size_t count, size_t size);
KIV_CRT void* realloc(void* block, size_t size);
KIV_CRT void free(void* block);
KIV_CRT __declspec(noreturn) void abort(void);
KIV_CRT __declspec(noreturn) void exit(int code);
KIV_CRT long atol(const char* text);
KIV_CRT unsigned long strtoul(const char* text, char** end, int base);
KIV_CRT char* getenv(const char* name);

#endif
