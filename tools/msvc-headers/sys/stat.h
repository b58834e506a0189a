#ifndef KIV_MSVC_SYS_STAT_H
#define KIV_MSVC_SYS_STAT_H

#define _S_IREAD 0x0100
#define _S_IWRITE 0x0080

#endif
