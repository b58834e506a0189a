// Console output; see console_report.h.
#include "host/console_report.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "host/platform.h"

namespace cellhost {
namespace {

constexpr int kLabelWidth = 18;
constexpr uint32_t kKiBCountMax = 0xFFFFFFFFu;

}  // namespace

void Heading(const char* title) { printf("\n%s\n", title); }

void Item(const char* label, const char* format, ...) {
  va_list values;
  va_start(values, format);
  printf("  %-*s ", kLabelWidth, label);
  vprintf(format, values);
  putchar('\n');
  va_end(values);
}

ShortText Grouped(uint64_t number) {
  ShortText grouped;
  char* at = grouped.text + sizeof grouped.text;
  *--at = '\0';
  int digits = 0;
  do {
    if (digits != 0 && digits % 3 == 0) *--at = ',';
    *--at = static_cast<char>('0' + number % 10);
    number /= 10;
    ++digits;
  } while (number != 0);
  memmove(grouped.text, at, strlen(at) + 1);
  return grouped;
}

ShortText SizeOfBytes(uint64_t bytes) {
  static constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  ShortText size;
  if (bytes < 1024) {
    snprintf(size.text, sizeof size.text, "%u bytes", static_cast<unsigned>(bytes));
    return size;
  }
  double value = static_cast<double>(bytes) / 1024;
  uint32_t unit = 0;
  for (; value >= 1024; ++unit) value /= 1024;
  snprintf(size.text, sizeof size.text, "%.1f %s", value, kUnits[unit]);
  return size;
}

ShortText SizeOfKiB(uint32_t kibibytes) {
  if (kibibytes == kKiBCountMax) return {"4 TiB or more"};
  return SizeOfBytes(uint64_t{kibibytes} * 1024);
}

ShortText Duration(uint64_t seconds) {
  ShortText duration;
  const unsigned minutes = static_cast<unsigned>(seconds / 60);
  const unsigned days = minutes / 60 / 24;
  char daysText[24] = "";
  if (days != 0) snprintf(daysText, sizeof daysText, "%u %s ", days, days == 1 ? "day" : "days");
  snprintf(duration.text, sizeof duration.text, "%s%u h %02u min", daysText, minutes / 60 % 24,
           minutes % 60);
  return duration;
}

bool OutputIsTerminal() { return IsTerminal(stdout); }

}  // namespace cellhost
