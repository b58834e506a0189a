// How file names are written.
//
//   constexpr char kPathSeparator    between the folders of a name; others may be understood too
#ifndef KIV_OS_PATH_H
#define KIV_OS_PATH_H

#include "inline/path.h"

#endif
