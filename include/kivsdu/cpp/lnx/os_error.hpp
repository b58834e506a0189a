// Texts of OS errors that the system's own list words wrongly or not at all, on Linux.
#ifndef KIVSDU_CPP_LNX_OS_ERROR_HPP
#define KIVSDU_CPP_LNX_OS_ERROR_HPP

#include <cstdint>

namespace kivsdu::detail {

// The text of an outcome that has the same number on every platform; null for an errno.
inline const char* TextOfOutcome(uint32_t osError, bool isWaitResult) noexcept {
  switch (osError) {
    case 38:
      return isWaitResult ? nullptr : "End of file";
    case 128:
      return isWaitResult ? "The mutex's owner ended without releasing it" : nullptr;
    case 258:
      return "The wait timed out";
    case 535:
      return "The pipe is already connected";
    case 997:
      return "The transfer is pending";
    case 0xFFFFFFFF:
      return "The wait failed";
    default:
      return nullptr;
  }
}

}  // namespace kivsdu::detail

#endif
