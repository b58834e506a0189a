// The demo's clients over shared memory; see demo_segment.h.
#include "demo/demo_segment.h"

#include <stdio.h>

#include "channel/protocol.h"
#include "host/complain.h"
#include "host/console_report.h"

namespace cellhost {
namespace {

constexpr uint32_t kChunkWaitMs = 20 * 1000;

}  // namespace

bool ChunkAsker::Start(const DemoOptions& options, uint32_t number) {
  number_ = number;
  return check_.Read(options.answers.c_str(), "--answers") && client_.Open(options.pipe.c_str(), 0);
}

bool ChunkAsker::Ask(const Query& query) {
  RequestText request;
  Reply reply;
  return request.Set(kQuery, query.text) && client_.Ask(request.text(), &reply) &&
         check_.Compare(reply.text);
}

bool ChunkAsker::Finish() {
  ShortText name;
  snprintf(name.text, sizeof name.text, "Client %u", number_);
  Item(name.text, "chunk %d: %u of %u answers agree", client_.chunk(), agreeing(), expected());
  check_.ShowDifferences("Differences");
  client_.Leave();
  return agreeing() == expected();
}

// The client that will be killed, a process, takes the first chunk. Clients of this process take
// the others. One more client must find none.
bool ChunkDemo::TakeAllChunks(const DemoOptions& options, uint32_t before) {
  if (!lost_.Start(options) || !lost_.AwaitAnswers()) return false;
  int32_t notSeen = KIV_SEGMENT_CHUNKS * (KIV_SEGMENT_CHUNKS - 1) / 2;
  for (uint32_t at = 0; at < kAskers; ++at) {
    if (!askers_[at].Start(options, before + at + 1)) return false;
    if (at == kHolders) break;
    if (!askers_[at].client()->AwaitChunk(kChunkWaitMs)) return false;
    notSeen -= askers_[at].client()->chunk();
  }
  lostChunk_ = notSeen;
  if (waiting_.client()->AskForChunk() == Given::kNone) {
    Item("One more client", "is told that all %u chunks are taken, and waits", KIV_SEGMENT_CHUNKS);
    return true;
  }
  return Complain("one client too many did not learn that all chunks are taken");
}

// Sends each query over all chunks, one right after another, while the client that will be killed
// goes on, too.
bool ChunkDemo::AskHolders(uint32_t first, uint32_t end) {
  for (uint32_t at = first; at < end; ++at) {
    for (uint32_t holder = 0; holder < kHolders; ++holder) {
      if (!lost_.Pump() || !askers_[holder].Ask(queries_.item(at))) return false;
    }
  }
  return true;
}

bool ChunkDemo::PassOn() {
  // Run counts wrong answers of the killed client at the end; the other clients go on.
  lostAgrees_ = lost_.Lose();
  if (!waiting_.client()->AwaitChunk(kChunkWaitMs)) return false;
  passedOn_ = waiting_.client()->chunk() == lostChunk_;
  if (!passedOn_) return Complain("the free chunk is not the lost client's");
  Item("Its chunk", "%d, is now the waiting client's", lostChunk_);
  return true;
}

bool ChunkDemo::AskAll() {
  const uint32_t half = queries_.count() / 2;
  if (!AskHolders(0, half) || !PassOn() || !AskHolders(half, queries_.count())) return false;
  for (uint32_t at = 0; at < queries_.count(); ++at) {
    if (!waiting_.Ask(queries_.item(at))) return false;
  }
  return true;
}

bool ChunkDemo::Run(const DemoOptions& options, uint32_t before) {
  Heading("Clients over shared memory");
  if (!queries_.Read(options.queries.c_str(), "--queries") || !TakeAllChunks(options, before) ||
      !AskAll()) {
    return false;
  }
  bool done = lostAgrees_;
  for (ChunkAsker& asker : askers_) {
    if (!asker.Finish()) done = false;
  }
  return done;
}

}  // namespace cellhost
