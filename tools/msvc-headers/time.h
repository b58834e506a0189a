#ifndef KIV_MSVC_TIME_H
#define KIV_MSVC_TIME_H

#include <corecrt.h>

typedef long clock_t;
typedef __time64_t time_t;

struct tm {
  int tm_sec;
  int tm_min;
  int tm_hour;
  int tm_mday;
  int tm_mon;
  int tm_year;
  int tm_wday;
  int tm_yday;
  int tm_isdst;
};

KIV_CRT clock_t clock(void);
KIV_CRT __time64_t _time64(__time64_t* time);
KIV_CRT struct tm* _localtime64(const __time64_t* time);
KIV_CRT char* asctime(const struct tm* time);
KIV_CRT char* _ctime64(const __time64_t* time);

#endif
