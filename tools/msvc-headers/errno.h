#ifndef KIV_MSVC_ERRNO_H
#define KIV_MSVC_ERRNO_H

#include <corecrt.h>

KIV_CRT int* _errno(void);
#define errno (*_errno())

#define ENOENT 2
#define EIO 5
#define EBADF 9
#define ENOMEM 12
#define EACCES 13
#define EEXIST 17
#define EINVAL 22
#define EMFILE 24
#define ENOSPC 28
#define ENOTEMPTY 41

#endif
