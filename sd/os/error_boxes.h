// Whether the system shows an error box and waits for the user when a drive has no medium or a
// module is damaged.
#ifndef KIV_OS_ERROR_BOXES_H
#define KIV_OS_ERROR_BOXES_H

#include <cstdint>

namespace kiv::os {

constexpr uint32_t kErrorBoxesShown = 0;
constexpr uint32_t kErrorBoxesHidden = 1;

// Sets the mode of the whole process and returns the previous mode.
uint32_t SetErrorBoxes(uint32_t mode);

}  // namespace kiv::os

#endif
