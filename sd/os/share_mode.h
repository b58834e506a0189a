// Share modes: how others may open a file that is open already.
#ifndef KIV_OS_SHARE_MODE_H
#define KIV_OS_SHARE_MODE_H

#include <cstdint>

namespace kiv::os {

constexpr uint32_t kNoSharing = 0;
constexpr uint32_t kShareAll = 7;  // reading, writing, deleting

}  // namespace kiv::os

#endif
