// The command HOG; see hog.h.
#include "server/hog.h"

#include <stdio.h>

#include <charconv>

#include "channel/protocol.h"
#include "host/memory_manager.h"
#include "host/thread_record.h"

namespace cellhost {
namespace {

constexpr uint32_t kHogWords = 2;
constexpr uint32_t kPieceBytes = 1024 * 1024;  // more than any "maxblock": counted one by one

// Links the pieces; stored in the pieces themselves.
struct Piece {
  Piece* next;
};

// Allocates up to `most` pieces. Returns their number.
uint32_t TakeAll(RequestHeap* heap, uint32_t most, Piece** pieces) {
  uint32_t taken = 0;
  for (void* memory = nullptr; taken < most && heap->Take(kPieceBytes, &memory) == 0; ++taken) {
    Piece* piece = static_cast<Piece*>(memory);
    piece->next = *pieces;
    *pieces = piece;
  }
  return taken;
}

void GiveAllBack(RequestHeap* heap, Piece* pieces) {
  while (pieces != nullptr) {
    Piece* next = pieces->next;
    heap->GiveBack(pieces);
    pieces = next;
  }
}

uint32_t WarningsSeen() { return MemoryMessagesSeen().warnings.load(std::memory_order_relaxed); }

struct TotalsText {
  char text[64];
};

TotalsText Compare(const MemoryTotals& before, const MemoryTotals& after) {
  if (!after.counted) return {"totals not counted"};
  if (after.used() <= before.used()) return {"totals back"};
  TotalsText text;
  snprintf(text.text, sizeof text.text, "totals higher by %llu bytes",
           static_cast<unsigned long long>(after.used() - before.used()));
  return text;
}

}  // namespace

bool ParseHog(std::string_view text, TextRoom* room, uint32_t* mebibytes, Fault* fault) {
  Words words;
  if (!SplitWords(text, kHogWords, room, &words, fault)) return false;
  const std::string_view number = words.count == kHogWords ? words.word[1].text : "";
  const char* end = number.data() + number.size();
  const auto [stop, error] = std::from_chars(number.data(), end, *mebibytes);
  if (words.count != kHogWords || words.word[0].text != kHog || error != std::errc() ||
      stop != end || *mebibytes == 0 || *mebibytes > kHogMebibytesMax) {
    return Wrong(fault, "write HOG and how many MiB, a whole number from 1 to %u",
                 kHogMebibytesMax);
  }
  return true;
}

HogOutcome Hog(uint32_t mebibytes) {
  RequestHeap* heap = &ThisThread()->request;
  heap->Begin();  // before the totals are read: not to count the request's own memory
  const uint32_t warnings = WarningsSeen();
  const MemoryTotals before = MemoryTotalsNow();
  Piece* pieces = nullptr;
  const uint32_t taken = TakeAll(heap, mebibytes, &pieces);
  GiveAllBack(heap, pieces);
  const MemoryTotals after = MemoryTotalsNow();
  HogOutcome outcome;
  snprintf(outcome.text, sizeof outcome.text, "%s %u MiB; %s; %s",
           taken == mebibytes ? "took" : "refused after", taken,
           WarningsSeen() == warnings ? "no warning" : "warning seen", Compare(before, after).text);
  return outcome;
}

}  // namespace cellhost
