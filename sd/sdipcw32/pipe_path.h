// Paths of named pipes.
#ifndef KIV_SDIPCW32_PIPE_PATH_H
#define KIV_SDIPCW32_PIPE_PATH_H

#include <cstdint>

namespace kiv {

// A path in a block of the memory front, freed with the object. `line` and `freeLine` are the
// positions that the front is told.
class PipePath {
 public:
  // On this machine when the server is null or "local", in any case.
  PipePath(const char* server, const char* name, uint32_t line, uint32_t freeLine);
  ~PipePath();
  PipePath(const PipePath&) = delete;
  PipePath& operator=(const PipePath&) = delete;

  // Of the allocation, with its OS error; there is a text only when it is 0.
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
