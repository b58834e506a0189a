#ifndef KIV_MSVC_MALLOC_H
#define KIV_MSVC_MALLOC_H

#include <corecrt.h>

KIV_CRT size_t _msize(void* block);
KIV_CRT void* _aligned_malloc(size_t size, size_t alignment);
KIV_CRT void _aligned_free(void* block);

#endif
