// The demo's clients over shared memory: a client for each chunk of the server's segment, and one
// more, which must wait. One of the clients is killed in the middle of its queries, and the waiting
// client receives its chunk.
#ifndef CELLHOST_DEMO_DEMO_SEGMENT_H
#define CELLHOST_DEMO_DEMO_SEGMENT_H

#include <stdint.h>

#include "client/segment_client.h"
#include "cube/answer_check.h"
#include "cube/query.h"
#include "demo/demo_client.h"
#include "demo/demo_command.h"
#include "host/line_file.h"

namespace cellhost {

// A client in this process, so that the demo controls how long it keeps its chunk. It sends the
// demo's queries in order.
class ChunkAsker {
 public:
  // Opens the control pipe. Returns false on failure, after reporting it.
  //
  //   number  number of the client, for the output
  bool Start(const DemoOptions& options, uint32_t number);

  // Sends a query and keeps the answer for Finish.
  bool Ask(const Query& query);

  // Leaves and prints the outcome. Returns whether all answers agree.
  bool Finish();

  SegmentClient* client() { return &client_; }
  uint32_t agreeing() const { return check_.agreeing(); }
  uint32_t expected() const { return check_.lines(); }

 private:
  uint32_t number_ = 0;
  SegmentClient client_;
  AnswerCheck check_;
};

// Requires a server without other clients.
class ChunkDemo {
 public:
  // The last of them receives the killed client's chunk.
  static constexpr uint32_t kAskers = KIV_SEGMENT_CHUNKS;

  // Runs all steps and prints their outcome. Returns whether all went as expected.
  //
  //   before  number of clients of the demo so far, to number the new ones
  bool Run(const DemoOptions& options, uint32_t before);

  const ChunkAsker& asker(uint32_t at) const { return askers_[at]; }
  bool passedOn() const { return passedOn_; }  // the killed client's chunk went to the last asker

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
