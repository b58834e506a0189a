// Shows how far a long load has come, on one line that is written over, and only on a terminal:
// nothing of it gets into a pipe or a file.
#ifndef CELLHOST_HOST_PROGRESS_H
#define CELLHOST_HOST_PROGRESS_H

#include <stdint.h>

#include "host/stopwatch.h"

namespace cellhost {

class Progress {
 public:
  // unit: what is counted, such as "rows"; not copied.
  explicit Progress(const char* unit);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();  // wipes the line

  // After each row or record; cheap.
  //
  //   count      loaded so far
  //   doneBytes  read so far
  //   sizeBytes  of the whole file; 0 where it is not known
  void Update(uint64_t count, uint64_t doneBytes, uint64_t sizeBytes) {
    if (enabled_ && count % kCountBetweenLooks == 0) Look(count, doneBytes, sizeBytes);
  }

 private:
  static constexpr uint32_t kCountBetweenLooks = 1024;  // at the clock

  void Look(uint64_t count, uint64_t doneBytes, uint64_t sizeBytes);

  const char* unit_;
  bool enabled_;
  bool shown_ = false;
  Stopwatch sinceShown_;
};

}  // namespace cellhost

#endif
