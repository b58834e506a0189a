// OS errors that this layer tells apart, and texts of those that the system's own list words wrongly
// or not at all, on Linux.
#ifndef KIVSDU_CPP_LNX_OS_ERROR_HPP
#define KIVSDU_CPP_LNX_OS_ERROR_HPP

#include <cerrno>
#include <cstdint>

namespace kivsdu::detail {

inline constexpr uint32_t kOsMessageRest = EMSGSIZE;  // the message is longer than the buffer
inline constexpr uint32_t kOsClientLeft = ENODATA;    // the client came and left
inline constexpr uint32_t kOsPipeBusy = EBUSY;        // no instance is free
inline constexpr uint32_t kOsNoSuchPipe = ENOENT;

// Whether a read failed because the other end has closed the pipe, or the server has disconnected it.
inline bool IsPipeEnd(uint32_t osError) noexcept { return osError == EPIPE; }

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
