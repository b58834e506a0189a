// Requests over a chunk; see segment_client.h.
#include "client/segment_client.h"

#include <algorithm>
#include <charconv>

#include "channel/pipe_watch.h"
#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/sharedmem.h"
#include "kivsdu/status.h"
#include "kivsdu/time.h"

namespace cellhost {
namespace {

constexpr char kSourceAnswer[] = "cellhost/segment_client answer";
constexpr uint32_t kWritesSecondHalves = 0;
constexpr uint8_t kMakeIt = 1;
constexpr uint32_t kNoStamp = 0;  // only the end of the other kind has stamps
constexpr uint32_t kAskAgainMs = 20;

// Time-out of each wait, after which the client checks the pipe; and maximum number of waits.
constexpr uint32_t kTimeoutMs = 500;
constexpr uint32_t kTimeouts = 60;

// Splits a reply such as "cellhost-32-715 0" into the segment's name and the chunk.
bool ReadOffer(std::string_view offer, std::string_view* name, int32_t* chunk) {
  *name = TakeVerb(&offer);
  const char* end = offer.data() + offer.size();
  const std::from_chars_result number = std::from_chars(offer.data(), end, *chunk);
  return number.ec == std::errc() && number.ptr == end && *chunk >= 0 &&
         *chunk < static_cast<int32_t>(KIV_SEGMENT_CHUNKS) && !name->empty() &&
         name->size() < KIV_SEGMENT_NAME_BYTES;
}

// Reports why there is no answer. Always returns false.
bool TellNoAnswer(const PipeWatch& watch, Carried carried) {
  if (carried == Carried::kNoMemory) return false;
  if (carried == Carried::kNonsense) {
    return Complain("the server sends no valid answer over the segment; ask over the pipe");
  }
  if (watch.gone()) {
    return Complain("the server has ended; look at its messages, and start it again");
  }
  return Complain("the server does not answer over the segment; ask over the pipe");
}

}  // namespace

SegmentClient::SegmentClient() : answer_(kSourceAnswer) {}

SegmentClient::~SegmentClient() { Detach(); }

bool SegmentClient::Open(const char* pipe, uint32_t startWaitMs) {
  return pipe_.Open(pipe, startWaitMs);
}

Given SegmentClient::AskForChunk() {
  Reply reply;
  if (!pipe_.Ask(kSegment, &reply)) return Given::kFailed;
  if (!reply.ok && reply.text == kAllTaken) return Given::kNone;
  std::string_view name;
  int32_t chunk = KIV_CHUNK_NONE;
  if (!reply.ok || !ReadOffer(reply.text, &name, &chunk)) {
    Complain("the server refuses a chunk: %.*s", ShownLength(reply.text), reply.text.data());
    return Given::kFailed;
  }
  return Join(name, chunk) ? Given::kOne : Given::kFailed;
}

bool SegmentClient::AwaitChunk(uint32_t limitMs) {
  const TimeLimit limit(limitMs);
  for (;;) {
    const Given given = AskForChunk();
    if (given != Given::kNone) return given == Given::kOne;
    if (limit.passed()) {
      return Complain("all %u chunks of the server are taken; try again later, or over the pipe",
                      KIV_SEGMENT_CHUNKS);
    }
    KivSdSleep(ThisContext(), kAskAgainMs);
  }
}

// Opens the server's segment. Fails if there is no segment of this name, and makes none.
bool SegmentClient::Join(std::string_view name, int32_t chunk) {
  Detach();
  char text[KIV_SEGMENT_NAME_BYTES] = {};
  std::copy(name.begin(), name.end(), text);
  KivSdContext* ctx = ThisContext();
  const uint32_t found = KivFindShareMemSeg(ctx, text, kWritesSecondHalves, &list_, kMakeIt,
                                            kNoStamp, kNoStamp, nullptr, nullptr, &segment_);
  uint32_t mappingId = 0;
  void* view = nullptr;
  if (!Succeeded(ctx, found, "make a segment's descriptor") ||
      !Succeeded(ctx,
                 KivCreateSharedMemSeg(ctx, text, kWritesSecondHalves, KIV_SHAREDMEM_WRITE,
                                       KIV_SHAREDMEM_PAGES_READ_WRITE, segment_, kTimeoutMs,
                                       &mappingId, &view),
                 "open the server's segment") ||
      !Succeeded(ctx, KivSetSharedMemSegBuffer(ctx, segment_, view), "use the segment")) {
    return false;
  }
  chunk_ = chunk;
  channel_.Use(segment_, chunk);
  return true;
}

void SegmentClient::Detach() {
  chunk_ = KIV_CHUNK_NONE;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivDeleteSharedMemSeg(ctx, list_), "leave the segment");
  list_ = nullptr;
  segment_ = nullptr;
}

bool SegmentClient::Ask(std::string_view request, Reply* reply) {
  if (chunk_ == KIV_CHUNK_NONE) return Complain("there is no chunk to ask over");
  if (request.size() > kChunkRequestBytesMax) {
    return Complain(
        "a request of %llu bytes is too long for a chunk, which takes %u; ask over the "
        "pipe",
        static_cast<unsigned long long>(request.size()), kChunkRequestBytesMax);
  }
  PipeWatch watch(&pipe_, kTimeouts, nullptr);
  uint32_t code = 0;
  answer_.Clear();
  Carried carried = channel_.SendRequest(request, &watch);
  if (carried == Carried::kDone) carried = channel_.ReceiveAnswer(&watch, &answer_, &code);
  if (carried != Carried::kDone) return TellNoAnswer(watch, carried);
  code_ = static_cast<FinalCode>(code);
  if (code_ != FinalCode::kDone && code_ != FinalCode::kBad && code_ != FinalCode::kRefused) {
    return TellNoAnswer(watch, Carried::kNonsense);
  }
  *reply = {.ok = code_ == FinalCode::kDone, .text = {answer_.data(), answer_.count()}};
  return true;
}

void SegmentClient::Leave() {
  // Over the chunk, because the server waits there and checks the pipe only after a time-out.
  PipeWatch watch(&pipe_, kTimeouts, nullptr);
  if (chunk_ != KIV_CHUNK_NONE) channel_.SendRequest(kBye, &watch);
  Detach();
  pipe_.Leave();
}

}  // namespace cellhost
