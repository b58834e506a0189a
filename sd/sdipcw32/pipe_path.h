// Paths of named pipes.
#ifndef KIV_SDIPCW32_PIPE_PATH_H
#define KIV_SDIPCW32_PIPE_PATH_H

#include <cstdint>

namespace kiv {

// A path in a block of the memory front; the destructor frees the block. `line` and `freeLine` are
// the source lines that the front records for the allocation and for the free.
class PipePath {
 public:
  // A server that is null or "local", in upper or lower case, means this machine.
  PipePath(const char* server, const char* name, uint32_t line, uint32_t freeLine);
  ~PipePath();
  PipePath(const PipePath&) = delete;
  PipePath& operator=(const PipePath&) = delete;

  // The allocation's status and OS error. The text is null unless the status is 0.
  uint32_t status() const { return status_; }
  uint32_t osError() const { return osError_; }
  const char* text() const { return text_; }

 private:
  uint32_t status_;
  uint32_t osError_;
  uint32_t freeLine_;
  char* text_;
};

}  // namespace kiv

#endif
