// Anonymous pipes, and named pipes with a server's and a client's end.
#include <string>

#include "kivsdu/pipe.h"
#include "kivsdu/status.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kBufferBytes = 4096;

class PipesVisitor : public Visitor {
 public:
  PipesVisitor(const World& world, uint32_t place, Random* random)
      : name_(NameOf(world, place, "pipe")), random_(*random) {}

  void Step() override {
    if (random_.OneIn(2)) return UseAnonymous();
    UseNamed();
  }

 private:
  // What one end writes, the other reads. The pipe has room for all of it.
  void Transfer(KivHandle* from, KivHandle* to) {
    char sent[kBufferBytes];
    char received[kBufferBytes];
    const uint32_t length = random_.Between(1, kBufferBytes);
    uint32_t count = 0;
    Fill(sent, length, length);
    Done(KivSdPipeWrite(nullptr, from, sent, length, &count), "KivSdPipeWrite");
    Expect(count == length, "a pipe takes all bytes that it has room for");
    for (uint32_t done = 0; done < length; done += count) {
      Done(KivSdPipeRead(nullptr, to, received + done, length - done, &count), "KivSdPipeRead");
      Expect(count != 0, "a read of a filled pipe returns bytes");
    }
    Expect(IsFilled(received, length, length), "a pipe passes the bytes that were written");
  }

  void UseAnonymous() {
    KivHandle readEnd = nullptr;
    KivHandle writeEnd = nullptr;
    Done(KivSdPipeCreate(nullptr, &readEnd, &writeEnd, kBufferBytes), "KivSdPipeCreate");
    Transfer(&writeEnd, &readEnd);
    Done(KivSdPipeClose(nullptr, &writeEnd), "KivSdPipeClose");
    Done(KivSdPipeClose(nullptr, &readEnd), "KivSdPipeClose");
  }

  void UseNamed() {
    KivHandle server = nullptr;
    KivHandle client = nullptr;
    Done(KivSdNamedPipeCreate(nullptr, name_.c_str(), &server, KIV_PIPE_DUPLEX,
                              KIV_PIPE_BYTES | KIV_PIPE_READ_BYTES | KIV_PIPE_WAIT,
                              KIV_PIPE_INSTANCES_MAX, kBufferBytes, kBufferBytes, 0),
         "KivSdNamedPipeCreate");
    Done(KivSdNamedPipeOpen(nullptr, KIV_PIPE_THIS_MACHINE, name_.c_str(), &client,
                            KIV_ACCESS_READ | KIV_ACCESS_WRITE, KIV_SHARE_NONE,
                            KIV_DISPOSITION_OPEN_EXISTING, 0),
         "KivSdNamedPipeOpen");
    Done(KivSdNamedPipeConnect(nullptr, &server),
         "KivSdNamedPipeConnect of a client that is there");
    Transfer(&server, &client);
    Transfer(&client, &server);
    Done(KivSdPipeClose(nullptr, &client), "KivSdPipeClose");
    Done(KivSdNamedPipeDisconnect(nullptr, &server), "KivSdNamedPipeDisconnect");
    Done(KivSdPipeClose(nullptr, &server), "KivSdPipeClose");
  }

  const std::string name_;
  Random& random_;
};

}  // namespace

std::unique_ptr<Subsystem> MakePipes(const World& world) {
  return std::make_unique<Separate<PipesVisitor>>(world);
}

}  // namespace kiv::soak
