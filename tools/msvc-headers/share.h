#ifndef KIV_MSVC_SHARE_H
#define KIV_MSVC_SHARE_H

#define _SH_DENYRW 0x10
#define _SH_DENYWR 0x20
#define _SH_DENYRD 0x30
#define _SH_DENYNO 0x40

#endif
