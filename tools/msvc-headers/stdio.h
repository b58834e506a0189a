#ifndef KIV_MSVC_STDIO_H
#define KIV_MSVC_STDIO_H

#include <corecrt.h>
#include <stdarg.h>

typedef struct _iobuf {
  void* placeholder;
} FILE;

#define SEEK_SET 0
#define SEEK_CUR 1
#define SEEK_END 2
#define EOF (-1)

KIV_CRT FILE* __acrt_iob_func(unsigned index);
#define stdin (__acrt_iob_func(0))
#define stdout (__acrt_iob_func(1))
#define stderr (__acrt_iob_func(2))

#ifdef __cplusplus
extern "C" {
#endif
int printf(const char* format, ...);
int fprintf(FILE* file, const char* format, ...);
int sprintf(char* text, const char* format, ...);
int snprintf(char* text, size_t size, const char* format, ...);
int vsnprintf(char* text, size_t size, const char* format, va_list values);
#ifdef __cplusplus
}
#endif
KIV_CRT FILE* fopen(const char* path, const char* mode);
KIV_CRT int fclose(FILE* file);
KIV_CRT int fflush(FILE* file);
KIV_CRT int fgetc(FILE* file);
KIV_CRT char* fgets(char* text, int size, FILE* file);
KIV_CRT int remove(const char* path);
KIV_CRT char* _tempnam(const char* folder, const char* prefix);

#endif
