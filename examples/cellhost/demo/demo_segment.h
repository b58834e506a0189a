// The demo's clients over shared memory: a client for each chunk of the server's segment, one that
// is told that all chunks are taken, and the killing of one in the middle of its queries, whose
// chunk the waiting one gets then.
#ifndef CELLHOST_DEMO_DEMO_SEGMENT_H
#define CELLHOST_DEMO_DEMO_SEGMENT_H

#include <stdint.h>

#include "client/segment_client.h"
#include "cube/query.h"
#include "demo/demo_client.h"
#include "demo/demo_command.h"
#include "host/answer_check.h"
#include "host/line_file.h"

namespace cellhost {

// A client in this process, so that it keeps its chunk as long as it is to. All its queries are
// the demo's, in order.
class ChunkAsker {
 public:
  // Opens the control pipe. False on failure, which has then been told.
  //
  //   number  for what is printed
  bool Start(const DemoOptions& options, uint32_t number);

  // Asks a query and keeps the answer for Finish.
  bool Ask(const Query& query);

  // Leaves and prints the outcome. Whether all answers agree.
  bool Finish();

  SegmentClient* client() { return &client_; }
  uint32_t agreeing() const { return check_.agreeing(); }
  uint32_t expected() const { return check_.lines(); }

 private:
  uint32_t number_ = 0;
  SegmentClient client_;
  AnswerCheck check_;
};

// For a server without clients.
class ChunkDemo {
 public:
  // One of them gets the chunk of the client that is killed.
  static constexpr uint32_t kAskers = KIV_SEGMENT_CHUNKS;

  // Runs it all and prints what comes of it. Whether it is as it should be.
  //
  //   before  clients of the demo so far; for their numbers
  bool Run(const DemoOptions& options, uint32_t before);

  const ChunkAsker& asker(uint32_t at) const { return askers_[at]; }
  bool passedOn() const { return passedOn_; }  // the chunk of the client that was killed

 private:
  static constexpr uint32_t kHolders = kAskers - 1;

  bool TakeAllChunks(const DemoOptions& options, uint32_t before);
  bool AskHolders(uint32_t first, uint32_t end);
  bool PassOn();
  bool AskAll();

  LineFile<Query> queries_{ParseQuery};
  LostClient lost_;
  ChunkAsker askers_[kAskers];
  ChunkAsker& waiting_ = askers_[kHolders];
  int32_t lostChunk_ = KIV_CHUNK_NONE;
  bool lostAgrees_ = false;
  bool passedOn_ = false;
};

}  // namespace cellhost

#endif
