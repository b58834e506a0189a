#include "output.h"
#include "json.h"

#include <array>
#include <cstdio>
#include <sstream>

namespace kivsd {
namespace {

constexpr uint64_t kUnitFactor = 1024;
constexpr std::array<const char*, 4> kUnits = {"KiB", "MiB", "GiB", "TiB"};

constexpr uint64_t kMinute = 60;
constexpr uint64_t kHour = 60 * kMinute;
constexpr uint64_t kDay = 24 * kHour;

std::string Dumped(const Json& value, int indent) {
  return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

// Two units of time, the second without a part of it.
std::string TwoUnits(uint64_t large, const char* largeUnit, uint64_t small, const char* smallUnit) {
  return std::to_string(large) + " " + largeUnit + " " + std::to_string(small) + " " + smallUnit;
}

}  // namespace

void PrintJson(const Json& value) { std::printf("%s\n", Dumped(value, 2).c_str()); }

void PrintJsonLine(const Json& value) { std::printf("%s\n", Dumped(value, -1).c_str()); }

std::string Wrapped(const std::string& label, size_t indent, const std::string& text,
                    size_t width) {
  std::string all;
  std::string line = label;
  if (!line.empty()) line += ' ';
  if (line.size() < indent) line.resize(indent, ' ');
  size_t start = line.size();
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const bool isFirst = line.size() == start;
    if (!isFirst && line.size() + 1 + word.size() > width) {
      all += line + "\n";
      line.assign(indent, ' ');
      start = indent;
    }
    if (line.size() != start) line += ' ';
    line += word;
  }
  return all + line + "\n";
}

std::string SizeText(uint64_t bytes) {
  if (bytes < kUnitFactor) return Counted(bytes, "byte");
  double size = static_cast<double>(bytes);
  size_t unit = 0;
  for (size /= kUnitFactor; size >= kUnitFactor && unit + 1 < kUnits.size(); ++unit) {
    size /= kUnitFactor;
  }
  char text[40];
  const bool isWhole = size == static_cast<double>(static_cast<uint64_t>(size));
  std::snprintf(text, sizeof text, isWhole ? "%.0f %s" : "%.1f %s", size, kUnits[unit]);
  return text;
}

std::string DurationText(uint64_t seconds) {
  if (seconds >= kDay) return TwoUnits(seconds / kDay, "d", seconds % kDay / kHour, "h");
  if (seconds >= kHour) return TwoUnits(seconds / kHour, "h", seconds % kHour / kMinute, "min");
  if (seconds >= kMinute) return TwoUnits(seconds / kMinute, "min", seconds % kMinute, "s");
  return std::to_string(seconds) + " s";
}

std::string Counted(uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace kivsd
