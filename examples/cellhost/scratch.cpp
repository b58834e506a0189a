// A query's memory; see scratch.h.
#include "scratch.h"

#include <algorithm>

#include "complain.h"
#include "thread_record.h"

namespace cellhost {
namespace {

constexpr size_t kFirstTextBytes = 256;
constexpr uint64_t kPieceBytesMax = 0xFFFFFFFFu;

}  // namespace

void* TakeScratch(uint64_t sizeBytes) {
  if (sizeBytes > kPieceBytesMax) {
    Complain("a query needs more than 4 GiB in one piece");
    return nullptr;
  }
  const ThreadRecord* thread = ThisThread();
  void* piece = nullptr;
  const uint32_t status = KivSdMemStackAllocAndPush(thread->ctx, thread->scratch,
                                                    static_cast<uint32_t>(sizeBytes), &piece);
  return Succeeded(thread->ctx, status, "get memory for a query") ? piece : nullptr;
}

bool ResetScratch() {
  const ThreadRecord* thread = ThisThread();
  return Succeeded(thread->ctx, KivSdMemStackReset(thread->ctx, thread->scratch),
                   "reset the scratch stack");
}

void ScratchText::Add(std::string_view text) {
  if (failed_ || (text.size() > room_ - length_ && !Grow(length_ + text.size()))) return;
  std::copy(text.begin(), text.end(), start_ + length_);
  length_ += text.size();
}

// The old place is left behind: it goes with the query.
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
