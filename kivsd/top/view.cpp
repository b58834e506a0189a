#include "top/view.h"

#include <algorithm>
#include <cstdio>

#include "json.h"
#include "kivsdu/status_text.h"
#include "output.h"

namespace kivsd {
namespace {

using kivsdu::MemoryReader;
using kivsdu::MemorySample;

constexpr uint64_t kNearPercent = 90;
constexpr uint64_t kSilentIntervals = 3;
constexpr uint64_t kMsPerSecond = 1000;
constexpr size_t kBarLength = 40;
constexpr uint64_t kSmallestClass = 160;  // bytes; memusage.h names the classes
constexpr uint64_t kSecondClass = 1024;
constexpr unsigned kFirstPower = 11;

std::string Line(const char* format, auto... values) {
  char text[256];
  std::snprintf(text, sizeof text, format, values...);
  std::string line = text;
  line.erase(line.find_last_not_of(' ') + 1);
  return line + "\n";
}

uint64_t TotalOf(const MemorySample& sample) {
  return sample.inHeaps + sample.usedOutsideHeaps + sample.aligned;
}

uint64_t PercentOf(uint64_t part, uint64_t whole) {
  return static_cast<uint64_t>(static_cast<double>(part) * 100 / static_cast<double>(whole));
}

uint64_t AgeMs(const TopView& view) {
  return view.nowMs > view.sample.timeMs ? view.nowMs - view.sample.timeMs : 0;
}

bool IsSilent(const TopView& view) {
  return AgeMs(view) > kSilentIntervals * std::max(view.sample.intervalMs, kMsPerSecond);
}

// ---- Parts of the screen ----

std::string Heading(const TopView& view) {
  const MemorySample& sample = view.sample;
  const std::string name = sample.host[0] != '\0' ? sample.host : "a host";
  const uint64_t upMs = sample.timeMs > sample.startMs ? sample.timeMs - sample.startMs : 0;
  return Line("%s, process %llu, publishing for %s, sample %llu", name.c_str(),
              static_cast<unsigned long long>(sample.processId),
              DurationText(upMs / kMsPerSecond).c_str(),
              static_cast<unsigned long long>(sample.samples));
}

std::string UsageRow(const char* name, const std::string& now, const std::string& mark,
                     const std::string& peak) {
  return Line("  %-16s%14s%18s%14s", name, now.c_str(), mark.c_str(), peak.c_str());
}

std::string Usage(const MemorySample& sample) {
  if (sample.memoryControl == 0) {
    return "memory: not counted. Memory control is off in this host, or it is in plain mode.\n";
  }
  const uint64_t managed = sample.inHeaps + sample.usedOutsideHeaps;
  return Line("%-18s%14s%18s%14s", "memory", "in use", "peak since mark", "peak") +
         UsageRow("thread heaps", SizeText(sample.inHeaps), "", "") +
         UsageRow("outside heaps", SizeText(sample.usedOutsideHeaps), "", "") +
         UsageRow("both", SizeText(managed), SizeText(sample.usedMark), SizeText(sample.usedPeak)) +
         UsageRow("of the host", SizeText(sample.aligned), SizeText(sample.alignedMark),
                  SizeText(sample.alignedPeak)) +
         UsageRow("all", SizeText(TotalOf(sample)), SizeText(sample.totalMark),
                  SizeText(sample.totalPeak));
}

std::string Limit(const MemorySample& sample) {
  if (sample.limit == 0) return "limit: none\n";
  const uint64_t percent = PercentOf(TotalOf(sample), sample.limit);
  const size_t filled = std::min<size_t>(kBarLength, percent * kBarLength / 100);
  const std::string bar = std::string(filled, '#') + std::string(kBarLength - filled, '.');
  return Line("limit: %s, %llu%% in use [%s]", SizeText(sample.limit).c_str(),
              static_cast<unsigned long long>(percent), bar.c_str());
}

std::string Heaps(const MemorySample& sample) {
  if (sample.slots == 0 || sample.heapBytes == 0) return "heaps: none, plain mode\n";
  const std::string shortHeaps =
      sample.shortHeapBytes == 0 ? "off" : "of " + SizeText(sample.shortHeapBytes);
  return Wrapped("heaps:", 2,
                 std::to_string(sample.inHeaps / sample.heapBytes) + " of at most " +
                     std::to_string(sample.heapBudget) + " thread heaps of " +
                     SizeText(sample.heapBytes) + " for " + std::to_string(sample.slots) +
                     " slots; short heaps " + shortHeaps + "; they serve requests up to " +
                     SizeText(sample.largestRequest));
}

uint64_t ClassBytes(size_t index) {
  if (index == 0) return kSmallestClass;
  if (index == 1) return kSecondClass;
  return uint64_t{1} << (kFirstPower + index - 2);
}

std::string ClassName(size_t index) {
  const bool isLast = index + 1 == AD_BLOCK_CLASSES;
  return (isLast ? "above " : "up to ") + SizeText(ClassBytes(isLast ? index - 1 : index));
}

// The counts wrap at 2^32.
uint64_t Difference(uint64_t now, uint64_t before) { return static_cast<uint32_t>(now - before); }

std::string RateText(const TopView& view, size_t index) {
  if (!view.earlier || view.sample.timeMs <= view.earlier->timeMs) return "";
  const uint64_t count = Difference(view.sample.allocated[index], view.earlier->allocated[index]);
  return std::to_string(count * kMsPerSecond / (view.sample.timeMs - view.earlier->timeMs));
}

std::string BlockRow(const TopView& view, size_t index) {
  const MemorySample& sample = view.sample;
  if (sample.allocated[index] == 0 && sample.freed[index] == 0) return "";
  return Line("  %-16s%14llu%18llu%14s", ClassName(index).c_str(),
              static_cast<unsigned long long>(sample.allocated[index]),
              static_cast<unsigned long long>(sample.freed[index]), RateText(view, index).c_str());
}

std::string Blocks(const TopView& view) {
  if (view.sample.blockStatistics == 0) {
    return "blocks: not counted; \"memoryblockscontrol\" in config.mem counts them\n";
  }
  std::string text = Line("%-18s%14s%18s%14s", "blocks by size", "allocated", "freed", "new/s");
  for (size_t i = 0; i < AD_BLOCK_CLASSES; ++i) text += BlockRow(view, i);
  return text;
}

std::string StatusName(uint32_t status) { return KivStatusFind(status)->name; }

}  // namespace

std::vector<std::string> WarningsOf(const TopView& view) {
  std::vector<std::string> warnings;
  const MemorySample& sample = view.sample;
  if (view.outcome == MemoryReader::Outcome::kEnded) {
    warnings.emplace_back("The host has stopped publishing. This is its last sample.");
  } else if (IsSilent(view)) {
    warnings.push_back("The last sample is " + DurationText(AgeMs(view) / kMsPerSecond) +
                       " old. The host has ended, or hangs.");
  }
  if (sample.limit != 0 && PercentOf(TotalOf(sample), sample.limit) >= kNearPercent) {
    warnings.emplace_back("Over 90% of the limit is in use. Release caches, or raise memorylimit.");
  }
  for (size_t i = 0; i < kivsdu::kMemoryMessages.size(); ++i) {
    if (sample.messages[i] == 0) continue;
    const KivStatusInfo* info = KivStatusFind(kivsdu::kMemoryMessages[i]);
    warnings.push_back(Counted(sample.messages[i], "message") + " " + info->name + ". " +
                       info->advice);
  }
  return warnings;
}

std::string TextOf(const TopView& view) {
  std::string text = Heading(view) + "\n" + Usage(view.sample) + Limit(view.sample) +
                     Heaps(view.sample) + "\n" + Blocks(view);
  const std::vector<std::string> warnings = WarningsOf(view);
  if (!warnings.empty()) text += "\n";
  for (const std::string& warning : warnings) text += Wrapped("warning:", 2, warning);
  return text;
}

namespace {

Json JsonOfUsage(const MemorySample& sample) {
  return {{"in_heaps", sample.inHeaps},         {"outside_heaps", sample.usedOutsideHeaps},
          {"aligned", sample.aligned},          {"used_peak", sample.usedPeak},
          {"aligned_peak", sample.alignedPeak}, {"total_peak", sample.totalPeak},
          {"used_mark", sample.usedMark},       {"aligned_mark", sample.alignedMark},
          {"total_mark", sample.totalMark}};
}

Json JsonOfSettings(const MemorySample& sample) {
  return {{"limit", sample.limit},
          {"slots", sample.slots},
          {"heap_budget", sample.heapBudget},
          {"heap_bytes", sample.heapBytes},
          {"short_heap_bytes", sample.shortHeapBytes},
          {"largest_request", sample.largestRequest}};
}

Json JsonOfBlocks(const MemorySample& sample) {
  Json blocks = Json::array();
  for (size_t i = 0; i < AD_BLOCK_CLASSES; ++i) {
    const bool isLast = i + 1 == AD_BLOCK_CLASSES;
    blocks.push_back({{"up_to", isLast ? Json() : Json(ClassBytes(i))},
                      {"allocated", sample.allocated[i]},
                      {"freed", sample.freed[i]}});
  }
  return blocks;
}

Json JsonOfMessages(const MemorySample& sample) {
  Json messages = Json::object();
  for (size_t i = 0; i < kivsdu::kMemoryMessages.size(); ++i) {
    messages[StatusName(kivsdu::kMemoryMessages[i])] = sample.messages[i];
  }
  return messages;
}

}  // namespace

Json JsonOf(const TopView& view) {
  const MemorySample& sample = view.sample;
  return {{"host", sample.host},
          {"process", sample.processId},
          {"start_ms", sample.startMs},
          {"time_ms", sample.timeMs},
          {"sample", sample.samples},
          {"ended", view.outcome == MemoryReader::Outcome::kEnded},
          {"counted", sample.memoryControl != 0},
          {"usage", sample.memoryControl != 0 ? JsonOfUsage(sample) : Json()},
          {"settings", JsonOfSettings(sample)},
          {"blocks", sample.blockStatistics != 0 ? JsonOfBlocks(sample) : Json()},
          {"messages", JsonOfMessages(sample)},
          {"warnings", WarningsOf(view)}};
}

}  // namespace kivsd
