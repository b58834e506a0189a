// The syntax of paths.
//
//   constexpr char kPathSeparator    stands between the parts of a path; the platform may accept
//                                    other separators too
#ifndef KIV_OS_PATH_H
#define KIV_OS_PATH_H

#include "inline/path.h"

#endif
