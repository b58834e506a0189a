// Gives the functions of shared_entries.h the names under which kivsdu.def exports them. Only the
// source that defines these functions includes this header.
#ifndef KIV_OS_ENTRY_NAMES_H
#define KIV_OS_ENTRY_NAMES_H

#include "inline/entry_names.h"

#endif
