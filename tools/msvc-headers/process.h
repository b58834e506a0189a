#ifndef KIV_MSVC_PROCESS_H
#define KIV_MSVC_PROCESS_H

#include <corecrt.h>

KIV_CRT int _getpid(void);

#endif
