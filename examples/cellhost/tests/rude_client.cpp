// rude_client PIPE: a client that breaks the rules of the control pipe. It announces a message that
// is too long, leaves in the middle of a message, and leaves without BYE, 5 times each. The server
// must not have lost a client before. Exit code 0 if the server refused the long messages and
// counted the others as lost.
#include <stdio.h>

#include "channel/protocol.h"
#include "client/pipe_client.h"
#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/pipe.h"
#include "kivsdu/vorutil.h"

using namespace cellhost;

namespace {

constexpr int kTimes = 5;
constexpr std::string_view kAllLost = "lost 10,";
constexpr uint32_t kReplyWaitMs = 10 * 1000;
constexpr std::string_view kTooLong = "\xFF\xFF\xFF\xFFQUERY";
constexpr std::string_view kHalf("\x40\0\0\0QUERY", 9);

// Writes raw bytes instead of messages.
class RawClient : public PipeClient {
 public:
  bool Write(std::string_view bytes) {
    uint32_t writtenBytes = 0;
    return KivSdPipeWrite(nullptr, &pipe_, bytes.data(), static_cast<uint32_t>(bytes.size()),
                          &writtenBytes) == 0;
  }
};

bool TooLongIsAnswered(const char* pipe) {
  RawClient client;
  const TimeLimit limit(kReplyWaitMs);
  std::string_view reply;
  return client.Open(pipe, 0) && client.Write(kTooLong) &&
         client.Receive({.limit = &limit, .stop = nullptr}, &reply) == Received::kMessage &&
         reply.starts_with("ERROR the request is too long");
}

bool LeaveInMessage(const char* pipe) {
  RawClient client;
  return client.Open(pipe, 0) && client.Write(kHalf);
}

bool LeaveAtOnce(const char* pipe) {
  RawClient client;
  return client.Open(pipe, 0);
}

// Waits until the losses are counted: the server notices them when it next checks the pipe.
bool LossesAreCounted(const char* pipe) {
  PipeClient client;
  const TimeLimit limit(kReplyWaitMs);
  Reply reply;
  if (!client.Open(pipe, 0)) return false;
  for (Pause pause; !limit.passed(); pause.Take()) {
    if (!client.Ask(kStats, &reply)) return false;
    if (reply.text.find(kAllLost) == reply.text.npos) continue;
    client.Leave();
    return true;
  }
  return false;
}

bool BeRude(const char* pipe) {
  for (int time = 0; time < kTimes; ++time) {
    if (!TooLongIsAnswered(pipe)) return Complain("a message that is too long was not answered");
    if (!LeaveInMessage(pipe) || !LeaveAtOnce(pipe)) return Complain("could not say a thing");
  }
  return LossesAreCounted(pipe) || Complain("the server has not counted 10 lost clients");
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    fputs("rude_client: write rude_client PIPE\n", stderr);
    return 2;
  }
  if (KivSdVorUtilTlsInit() != 0 || !EnterThread()) return 2;
  const bool done = BeRude(arguments[1]);
  LeaveThread();
  KivSdVorUtilTlsTerm();
  return done ? 0 : 1;
}
