#ifndef KIV_MSVC_CTYPE_H
#define KIV_MSVC_CTYPE_H

#include <corecrt.h>

KIV_CRT int isspace(int character);
KIV_CRT int isdigit(int character);
KIV_CRT int toupper(int character);
KIV_CRT int tolower(int character);

#endif
