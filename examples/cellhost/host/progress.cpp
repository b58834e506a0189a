// A line of progress; see progress.h.
#include "host/progress.h"

#include <stdio.h>

#include "host/console_report.h"

namespace cellhost {
namespace {

constexpr uint32_t kShowEveryUs = 100 * 1000;
constexpr int kLineWidth = 60;

}  // namespace

Progress::Progress(const char* unit) : unit_(unit), enabled_(OutputIsTerminal()) {}

Progress::~Progress() {
  if (!shown_) return;
  printf("\r%*s\r", kLineWidth, "");
  fflush(stdout);
}

void Progress::Look(uint64_t count, uint64_t doneBytes, uint64_t sizeBytes) {
  if (sinceShown_.elapsedUs() < kShowEveryUs) return;
  sinceShown_.Restart();
  shown_ = true;
  if (sizeBytes != 0) {
    printf("\r  %3u%%  %s %s", static_cast<unsigned>(doneBytes * 100 / sizeBytes),
           Grouped(count).text, unit_);
  } else {
    printf("\r  %s %s", Grouped(count).text, unit_);
  }
  fflush(stdout);
}

}  // namespace cellhost
