// OS errors that this layer tells apart, and texts of those that the system's own list words wrongly
// or not at all, on Windows.
#ifndef KIVSDU_CPP_W32_OS_ERROR_HPP
#define KIVSDU_CPP_W32_OS_ERROR_HPP

#include <cstdint>

namespace kivsdu::detail {

inline constexpr uint32_t kOsMessageRest = 234;  // the message is longer than the buffer
inline constexpr uint32_t kOsClientLeft = 232;   // the client came and left
inline constexpr uint32_t kOsPipeBusy = 231;     // no instance is free
inline constexpr uint32_t kOsNoSuchPipe = 2;

// Whether a read failed because the other end has closed the pipe, or the server has disconnected it.
inline bool IsPipeEnd(uint32_t osError) noexcept { return osError == 109 || osError == 233; }

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
