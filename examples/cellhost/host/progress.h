// Tells how far a long load has come, on one line that is written over, and only on a terminal:
// nothing of it gets into a pipe or a file.
#ifndef CELLHOST_HOST_PROGRESS_H
#define CELLHOST_HOST_PROGRESS_H

#include <stdint.h>

#include "host/input_file.h"
#include "host/stopwatch.h"

namespace cellhost {

class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();  // wipes the line

  // After each row; cheap.
  void Update(uint64_t rows, const InputFile& file) {
    if (enabled_ && rows % kRowsBetweenLooks == 0) Look(rows, file);
  }

 private:
  static constexpr uint32_t kRowsBetweenLooks = 1024;  // at the clock

  void Look(uint64_t rows, const InputFile& file);

  bool enabled_;
  bool shown_ = false;
  Stopwatch sinceShown_;
};

}  // namespace cellhost

#endif
