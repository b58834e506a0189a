// A line of progress; see progress.h.
#include "host/progress.h"

#include <stdio.h>

#include "host/console_report.h"

namespace cellhost {
namespace {

constexpr uint32_t kShowEveryUs = 100 * 1000;
constexpr int kLineWidth = 60;

}  // namespace

Progress::Progress() : enabled_(OutputIsTerminal()) {}

Progress::~Progress() {
  if (!shown_) return;
  printf("\r%*s\r", kLineWidth, "");
  fflush(stdout);
}

void Progress::Look(uint64_t rows, const InputFile& file) {
  if (sinceShown_.elapsedUs() < kShowEveryUs) return;
  sinceShown_.Restart();
  shown_ = true;
  const uint64_t size = file.sizeBytes();
  if (size != 0) {
    printf("\r  %3u%%  %s rows", static_cast<unsigned>(file.readBytes() * 100 / size),
           Grouped(rows).text);
  } else {
    printf("\r  %s rows", Grouped(rows).text);
  }
  fflush(stdout);
}

}  // namespace cellhost
