// A request's memory; see scratch.h.
#include "host/scratch.h"

#include <algorithm>

#include "host/complain.h"
#include "host/thread_record.h"

namespace cellhost {
namespace {

constexpr size_t kFirstTextBytes = 256;
constexpr uint64_t kPieceBytesMax = 0x7FFFFF00u;

}  // namespace

void* TakeScratch(uint64_t sizeBytes) {
  if (sizeBytes > kPieceBytesMax) {
    Complain("a request needs more than 2 GiB in one piece");
    return nullptr;
  }
  void* piece = nullptr;
  // Request at least 1 byte; see RequestHeap::Take.
  const uint32_t atLeastOne = std::max(static_cast<uint32_t>(sizeBytes), 1u);
  const uint32_t status = ThisThread()->request.Take(atLeastOne, &piece);
  return Succeeded(nullptr, status, "get memory for a request") ? piece : nullptr;
}

void ResetScratch() { ThisThread()->request.End(); }

bool ScratchRoom::MakeRoom(uint64_t lengthBytes, char** room) {
  *room = static_cast<char*>(TakeScratch(lengthBytes));
  return *room != nullptr;
}

void ScratchText::Add(std::string_view text) {
  if (failed_ || (text.size() > room_ - length_ && !Grow(length_ + text.size()))) return;
  std::copy(text.begin(), text.end(), start_ + length_);
  length_ += text.size();
}

// The old memory stays allocated until the request ends.
bool ScratchText::Grow(size_t length) {
  const size_t room = std::max({length, 2 * room_, kFirstTextBytes});
  char* start = static_cast<char*>(TakeScratch(room));
  failed_ = start == nullptr;
  if (failed_) return false;
  std::copy(start_, start_ + length_, start);
  start_ = start;
  room_ = room;
  return true;
}

}  // namespace cellhost
