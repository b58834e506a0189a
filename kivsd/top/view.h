// Shows samples of a host's memory: as a screen for a person, or as JSON.
#ifndef KIVSD_TOP_VIEW_H
#define KIVSD_TOP_VIEW_H

#include <optional>
#include <string>
#include <vector>

#include "json_forward.h"
#include "kivsdu/publisher.hpp"

namespace kivsd {

struct TopView {
  kivsdu::MemorySample sample;
  std::optional<kivsdu::MemorySample> earlier;  // the one before it, for rates
  kivsdu::MemoryReader::Outcome outcome;
  uint64_t nowMs;  // of the clock of the samples
};

// What a person should know: the limit is near, requests were refused, the host is silent.
std::vector<std::string> WarningsOf(const TopView& view);

std::string TextOf(const TopView& view);
Json JsonOf(const TopView& view);

}  // namespace kivsd

#endif
