#ifndef KIV_MSVC_CONIO_H
#define KIV_MSVC_CONIO_H

#include <corecrt.h>

KIV_CRT int _getch(void);

#endif
