#ifndef KIV_MSVC_SYS_TIMEB_H
#define KIV_MSVC_SYS_TIMEB_H

#include <corecrt.h>

struct __timeb64 {
  __time64_t time;
  unsigned short millitm;
  short timezone;
  short dstflag;
};

KIV_CRT void _ftime64(struct __timeb64* now);

#endif
