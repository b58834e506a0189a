// Shows the progress of a long load on one terminal line. Prints nothing into a pipe or a file.
#ifndef CELLHOST_HOST_PROGRESS_H
#define CELLHOST_HOST_PROGRESS_H

#include <stdint.h>

#include "host/stopwatch.h"

namespace cellhost {

class Progress {
 public:
  // unit: plural of the items that are counted, such as "rows"; not copied.
  explicit Progress(const char* unit);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();  // clears the line

  // Call after each row or record; cheap.
  //
  //   count      rows or records loaded
  //   doneBytes  bytes read
  //   sizeBytes  size of the whole file; 0 if unknown
  void Update(uint64_t count, uint64_t doneBytes, uint64_t sizeBytes) {
    if (enabled_ && count % kCountBetweenLooks == 0) Look(count, doneBytes, sizeBytes);
  }

 private:
  static constexpr uint32_t kCountBetweenLooks = 1024;  // between looks at the clock

  void Look(uint64_t count, uint64_t doneBytes, uint64_t sizeBytes);

  const char* unit_;
  bool enabled_;
  bool shown_ = false;
  Stopwatch sinceShown_;
};

}  // namespace cellhost

#endif
