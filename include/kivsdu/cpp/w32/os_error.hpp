// Texts of OS errors that the system's own list words wrongly or not at all, on Windows.
#ifndef KIVSDU_CPP_W32_OS_ERROR_HPP
#define KIVSDU_CPP_W32_OS_ERROR_HPP

#include <cstdint>

namespace kivsdu::detail {

// The text of a wait's result; null for any other number.
inline const char* TextOfOutcome(uint32_t osError, bool isWaitResult) noexcept {
  if (!isWaitResult) return nullptr;
  switch (osError) {
    case 128:
      return "The mutex's owner ended without releasing it";
    case 258:
      return "The wait timed out";
    case 0xFFFFFFFF:
      return "The wait failed";
    default:
      return nullptr;
  }
}

}  // namespace kivsdu::detail

#endif
