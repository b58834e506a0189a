// A segment: a client sends messages of any length, a server sends each back, and the client
// compares. The two threads use the segment as two processes would.
#include <algorithm>

#include "kivsdu/segment.h"
#include "kivsdu/sharedmem.h"
#include "kivsdu/status.h"
#include "platform.h"
#include "stress/subject.h"

namespace kivsd {
namespace {

constexpr uint32_t kThreads = 2;
constexpr uint32_t kServer = 1;  // the thread and its kind of descriptor; the client's is 0
constexpr int32_t kChunk = 0;
constexpr uint32_t kTimeoutMs = 30000;
constexpr uint32_t kMostWords = 2000;
constexpr uint32_t kEndCode = 1;
constexpr uint8_t kSend = 1;
constexpr uint8_t kSplit = 1;
constexpr uint8_t kBytes = 0;  // not a string

class SegmentSubject : public StressSubject {
 public:
  explicit SegmentSubject(StressRun* run)
      : StressSubject("segments", run), segment_("kivsd-stress-" + std::to_string(ProcessId())) {}

  uint32_t ThreadCount() const override { return kThreads; }

  void Work(uint32_t thread) override {
    KivSharedMemSeg* list = nullptr;
    if (KivSharedMemSeg* segment = Join(thread, &list)) {
      if (thread == kServer) {
        Serve(segment);
      } else {
        Ask(segment);
      }
    }
    Succeeded(KivDeleteSharedMemSeg(nullptr, list), "leave the segment");
  }

 private:
  KivSharedMemSeg* Join(uint32_t kind, KivSharedMemSeg** list) {
    KivSharedMemSeg* segment = nullptr;
    uint32_t mappingId = 0;
    void* view = nullptr;
    if (!Succeeded(KivFindShareMemSeg(nullptr, segment_.c_str(), kind, list, 1, 0, 0, nullptr,
                                      nullptr, &segment),
                   "make a descriptor") ||
        !Succeeded(KivCreateSharedMemSeg(
                       nullptr, segment_.c_str(), kind, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                       KIV_SHAREDMEM_PAGES_READ_WRITE, segment, kTimeoutMs, &mappingId, &view),
                   "set up the segment")) {
      return nullptr;
    }
    KivSetSharedMemSegBuffer(nullptr, segment, view);
    return segment;
  }

  bool Send(KivSharedMemSeg* segment, const std::vector<uint32_t>& words) {
    const auto bytes = static_cast<uint32_t>(words.size() * sizeof(uint32_t));
    return Succeeded(
        KivWriteSharedMemChunk(nullptr, segment, kChunk, bytes, kSend, kSplit, words.data()),
        "write to the segment");
  }

  bool Receive(KivSharedMemSeg* segment, uint32_t* words, size_t count, uint32_t* code) {
    *code = 0;
    return Succeeded(
        KivReadSharedMemChunk(nullptr, segment, kChunk,
                              static_cast<uint32_t>(count * sizeof(uint32_t)), kBytes, code, words),
        "read from the segment");
  }

  void Ask(KivSharedMemSeg* segment) {
    Random random(1);
    uint32_t next = 0;
    while (!run()->IsOver()) {
      std::vector<uint32_t> message(1 + Below(&random, kMostWords));
      std::ranges::generate(message, [&] { return next++; });
      message[0] = static_cast<uint32_t>(message.size());  // tells the server the length
      std::vector<uint32_t> answer(message.size());
      uint32_t code = 0;
      if (!Send(segment, message)) return;
      if (!Receive(segment, answer.data(), answer.size(), &code)) return;
      if (code != 0 || answer != message) Fail("an answer differs from its question");
      Count(1);
    }
    Succeeded(KivWriteSharedMemChunkCode(nullptr, segment, kChunk, kEndCode), "send the end");
  }

  void Serve(KivSharedMemSeg* segment) {
    for (;;) {
      uint32_t length = 0;
      uint32_t code = 0;
      if (!Receive(segment, &length, 1, &code) || code != 0) return;
      if (length == 0 || length > kMostWords) return Fail("a question has an impossible length");
      std::vector<uint32_t> message(length);
      message[0] = length;
      if (length > 1 && !Receive(segment, message.data() + 1, length - 1, &code)) return;
      if (!Send(segment, message)) return;
    }
  }

  const std::string segment_;
};

}  // namespace

std::unique_ptr<StressSubject> MakeSegmentSubject(StressRun* run) {
  return std::make_unique<SegmentSubject>(run);
}

}  // namespace kivsd
