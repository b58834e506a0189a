// The demo's clients: processes that send queries, and the comparison of their output.
#ifndef CELLHOST_DEMO_DEMO_CLIENT_H
#define CELLHOST_DEMO_DEMO_CLIENT_H

#include <stdint.h>

#include "cube/answer_check.h"
#include "demo/child_process.h"
#include "demo/demo_command.h"

namespace cellhost {

// A file of expected answers, and the command line option that names it.
struct ExpectedAnswers {
  const char* path;
  const char* option;
};

class DemoClient {
 public:
  // Starts a client that sends each query once and leaves. Returns false on failure, after
  // reporting it.
  //
  //   number  number of the client, from 1, for the output
  bool Start(const DemoOptions& options, const ExpectedAnswers& answers, uint32_t number);

  // Waits for the end, compares all answers and prints the outcome. Returns whether all agree.
  bool Finish();

  uint32_t agreeing() const { return check_.agreeing(); }
  uint32_t expected() const { return check_.lines(); }

 private:
  bool CompareAll();

  uint32_t number_ = 0;
  ChildProcess process_;
  AnswerCheck check_;
};

// The client that is killed. It repeats its queries without end, so that the kill always comes in
// the middle of them.
class LostClient {
 public:
  bool Start(const DemoOptions& options);

  // Waits until it has printed some answers.
  bool AwaitAnswers();

  // See ChildProcess::Pump.
  bool Pump() { return process_.Pump(); }

  // Waits until the client has printed some answers, kills it, compares the answers and prints the
  // outcome. Returns whether the answers agree and no step failed.
  bool Lose();

 private:
  bool CompareAll(uint32_t* answers);

  ChildProcess process_;
  TextLines expected_;
};

}  // namespace cellhost

#endif
