// Peers: a server over a named pipe that is stopped from outside, a message over shared memory, and
// blocks that are written in the background while a pause can stop the writers.
#include <cstdio>
#include <cstring>
#include <string>

#include "kivsdu/kivsdu.hpp"

namespace {

constexpr char kPipe[] = "kivsdu-example-peers";
constexpr char kSegment[] = "kivsdu-example-peers-segment";
constexpr char kBlocks[] = "example-peers.dat";
constexpr uint32_t kReadAndWrite = KIV_ACCESS_READ | KIV_ACCESS_WRITE;
constexpr std::chrono::seconds kPatience(30);

// Answers each message with its length, until the client closes its end. A client that fails or ends
// early must not end the server: this handles errors here and throws nothing.
void Serve(kivsdu::PipeEnd& client) {
  char request[256];
  kivsdu::ErrorCode error;
  while (!error) {
    const kivsdu::PipeData data = client.Read(request, sizeof(request), error);
    if (error || data.isEnd) return;
    const std::string answer = std::to_string(data.bytes) + " bytes";
    client.Write(answer.data(), static_cast<uint32_t>(answer.size()), error);
  }
}

// An exception that left the thread would end the process.
void RunServer(kivsdu::PipeServer& server) {
  try {
    server.Run(Serve);
  } catch (const kivsdu::Failure& failure) {
    std::fprintf(stderr, "peers: the server has ended: %s\n", failure.what());
  }
}

void Ask() {
  kivsdu::PipeEnd client = kivsdu::PipeEnd::Open(kPipe, kReadAndWrite);
  client.Write("price of 4711", 13);
  char answer[64];
  const kivsdu::PipeData data = client.Read(answer, sizeof(answer));
  std::printf("pipe: %.*s\n", static_cast<int>(data.bytes), answer);
}

void AskOverAPipe() {
  kivsdu::PipeForm form;
  form.pipeMode = kivsdu::kPipeOfMessages;
  kivsdu::PipeServer server(kPipe, form);
  kivsdu::Thread thread([&] { RunServer(server); });
  try {
    Ask();
  } catch (...) {
    server.Stop();  // the thread could otherwise never be joined
    throw;
  }
  server.Stop();
}

// The two ends are two threads here, and two processes in a real program.
void AskOverASegment() {
  kivsdu::Segment segment(kSegment, 1, kPatience);
  kivsdu::Chunk chunk = kivsdu::Chunk::Take(segment);
  kivsdu::Thread client([index = chunk.Index()] {
    kivsdu::Segment own(kSegment, 0, kPatience);
    kivsdu::Chunk channel = kivsdu::Chunk::Of(own, index);
    channel.WriteText("SUM section=libs");
    std::printf("segment: %s\n", channel.ReadText().c_str());
  });
  if (chunk.ReadText() == "SUM section=libs") chunk.WriteText("42");
  client.Join();
  chunk.Reset();
}

void WriteInTheBackground(kivsdu::Writer& writer) {
  kivsdu::DirectFile file(kBlocks, kReadAndWrite, KIV_SHARE_NONE, KIV_DISPOSITION_CREATE_ALWAYS,
                          KIV_OPEN_OVERLAPPED | KIV_OPEN_DELETE_ON_CLOSE);
  kivsdu::AlignedPages pages(2);
  std::memset(pages.Data(), 'x', size_t{2} * KIV_PAGE_UNIT);
  kivsdu::TransferLease lease(writer);
  kivsdu::Transfer transfers[2];
  transfers[0].StartWrite(file, 0, pages.Block(0), 1, &lease);
  transfers[1].StartWrite(file, 1, pages.Block(1), 1, &lease);
  const uint32_t written = transfers[0].Collect() + transfers[1].Collect();
  std::printf("blocks: %u written\n", written);
}

}  // namespace

int main() {
  if (adMemThreadHeapInit(1, nullptr, "peers", 0) != KIV_ST_OK) return 1;
  try {
    AskOverAPipe();
    AskOverASegment();
    kivsdu::WritePause pause;
    kivsdu::Writer writer(pause);
    WriteInTheBackground(writer);
  } catch (const kivsdu::Failure& failure) {
    std::fprintf(stderr, "peers: %s\n", failure.what());
    return 1;
  }
  adMemThreadHeapTerm();
}
