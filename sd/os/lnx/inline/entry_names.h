// Linux: the assembler sets the names, so that the static library has them too.
#ifndef KIV_OS_LNX_INLINE_ENTRY_NAMES_H
#define KIV_OS_LNX_INLINE_ENTRY_NAMES_H

#define KIV_ENTRY_NAME(name, function) \
  asm(".globl " #name "\n.type " #name ", %function\n.set " #name ", " #function);

// Made by CMake: one KIV_ENTRY_NAME for each name in kivsdu.def that has a function behind "=".
#include "kiv_entry_names.h"

#undef KIV_ENTRY_NAME

#endif
