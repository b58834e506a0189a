// Windows: the separator of paths.
#ifndef KIV_OS_W32_INLINE_PATH_H
#define KIV_OS_W32_INLINE_PATH_H

namespace kiv::os {

constexpr char kPathSeparator = '\\';

}  // namespace kiv::os

#endif
