#ifndef KIV_MSVC_IO_H
#define KIV_MSVC_IO_H

#include <corecrt.h>

KIV_CRT int _access(const char* path, int mode);
KIV_CRT int _chmod(const char* path, int mode);
KIV_CRT int _chsize(int file, long size);
KIV_CRT int _close(int file);
KIV_CRT int _commit(int file);
KIV_CRT int _creat(const char* path, int permissions);
KIV_CRT int _eof(int file);
KIV_CRT long _filelength(int file);
KIV_CRT intptr_t _get_osfhandle(int file);
KIV_CRT long _lseek(int file, long offset, int origin);
KIV_CRT __int64 _lseeki64(int file, __int64 offset, int origin);
KIV_CRT int _open(const char* path, int flags, ...);
KIV_CRT int _read(int file, void* buffer, unsigned size);
KIV_CRT int _sopen(const char* path, int flags, int share, ...);
KIV_CRT long _tell(int file);
KIV_CRT int _unlink(const char* path);
KIV_CRT int _write(int file, const void* buffer, unsigned size);

#endif
