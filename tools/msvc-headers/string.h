#ifndef KIV_MSVC_STRING_H
#define KIV_MSVC_STRING_H

#include <corecrt.h>

KIV_CRT void* memcpy(void* target, const void* source, size_t size);
KIV_CRT void* memmove(void* target, const void* source, size_t size);
KIV_CRT void* memset(void* target, int value, size_t size);
KIV_CRT int memcmp(const void* left, const void* right, size_t size);
KIV_CRT int strcmp(const char* left, const char* right);
KIV_CRT int strncmp(const char* left, const char* right, size_t length);
KIV_CRT size_t strlen(const char* text);
KIV_CRT size_t strcspn(const char* text, const char* characters);
KIV_CRT char* strcpy(char* target, const char* source);
KIV_CRT char* _strupr(char* text);
#ifdef __cplusplus
// In C++ these have one form for constant texts and one for others.
extern "C++" {
inline const void* memchr(const void* bytes, int value, size_t size) {
  return __builtin_memchr(bytes, value, size);
}
inline void* memchr(void* bytes, int value, size_t size) {
  return __builtin_memchr(bytes, value, size);
}
inline const char* strrchr(const char* text, int character) {
  return __builtin_strrchr(text, character);
}
inline char* strrchr(char* text, int character) { return __builtin_strrchr(text, character); }
}
#else
KIV_CRT void* memchr(const void* bytes, int value, size_t size);
KIV_CRT char* strrchr(const char* text, int character);
#endif

#endif
