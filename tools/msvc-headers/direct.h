#ifndef KIV_MSVC_DIRECT_H
#define KIV_MSVC_DIRECT_H

#include <corecrt.h>

KIV_CRT int _chdir(const char* path);
KIV_CRT int _getdrive(void);
KIV_CRT int _mkdir(const char* path);
KIV_CRT int _rmdir(const char* path);

#endif
