// The demo's clients: processes that ask, and the comparison of what they print.
#ifndef CELLHOST_DEMO_DEMO_CLIENT_H
#define CELLHOST_DEMO_DEMO_CLIENT_H

#include <stdint.h>

#include "demo/child_process.h"
#include "demo/demo_command.h"
#include "host/answer_check.h"

namespace cellhost {

// A file of what the server is to answer, and the option that names it.
struct ExpectedAnswers {
  const char* path;
  const char* option;
};

class DemoClient {
 public:
  // Starts a client that asks each query once and leaves. False on failure, which has then been
  // told.
  //
  //   number  from 1; for what is printed
  bool Start(const DemoOptions& options, const ExpectedAnswers& answers, uint32_t number);

  // Waits for the end, compares all answers and prints the outcome. Whether all agree.
  bool Finish();

  uint32_t agreeing() const { return check_.agreeing(); }
  uint32_t expected() const { return check_.lines(); }

 private:
  bool CompareAll();

  uint32_t number_ = 0;
  ChildProcess process_;
  AnswerCheck check_;
};

// The client that is to be lost: it asks its queries over and over, so that whenever it is
// killed, it is in their middle.
class LostClient {
 public:
  bool Start(const DemoOptions& options);

  // Waits until some answers have come.
  bool AwaitAnswers();

  // Takes what it has printed since, so that it goes on. False when there is no memory.
  bool Pump() { return process_.Pump(); }

  // Waits until some answers have come, kills the client, compares the answers and prints the
  // outcome. Whether all of that went well.
  bool Lose();

 private:
  bool CompareAll(uint32_t* answers);

  ChildProcess process_;
  TextLines expected_;
};

}  // namespace cellhost

#endif
