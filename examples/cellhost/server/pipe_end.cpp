// Messages through a pipe; see pipe_end.h.
#include "server/pipe_end.h"

#include <algorithm>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/pipe.h"
#include "kivsdu/settings.h"

namespace cellhost {
namespace {

constexpr char kSourceReceived[] = "cellhost/pipe_end received";
constexpr char kSourceSent[] = "cellhost/pipe_end sent";

}  // namespace

PipeEnd::PipeEnd(uint32_t longestBytes)
    : longestBytes_(longestBytes), received_(kSourceReceived), sent_(kSourceSent) {}

PipeEnd::~PipeEnd() { Close(); }

bool PipeEnd::IsOpen() const { return KivSdNamedPipeIsInitialized(&pipe_) != 0; }

void PipeEnd::Close() {
  if (!IsOpen()) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdPipeClose(ctx, &pipe_), "close the pipe");
  pipe_ = nullptr;
}

bool PipeEnd::Send(std::string_view text) {
  const uint32_t lengthBytes = static_cast<uint32_t>(text.size());
  const uint32_t sizeBytes = kLengthBytes + lengthBytes;
  if (!sent_.Resize(sizeBytes, 0)) return false;
  WriteLength(lengthBytes, sent_.data());
  std::copy(text.begin(), text.end(), sent_.data() + kLengthBytes);
  uint32_t writtenBytes = 0;
  const uint32_t status =
      KivSdPipeWrite(ThisContext(), &pipe_, sent_.data(), sizeBytes, &writtenBytes);
  return status == 0 && writtenBytes == sizeBytes;
}

// Waits until there is something to read.
Received PipeEnd::Look(const Patience& patience, uint32_t* availableBytes) {
  for (Pause pause;; pause.Take()) {
    *availableBytes = 0;
    const uint32_t status =
        KivSdNamedPipePeek(ThisContext(), &pipe_, 0, nullptr, nullptr, availableBytes, nullptr);
    if (status != 0) return Received::kGone;
    if (*availableBytes != 0) return Received::kMessage;
    // relaxed: the flag only ends the wait; nothing that it would publish is read.
    if (patience.stop != nullptr && patience.stop->load(std::memory_order_relaxed)) {
      return Received::kStopped;
    }
    if (patience.limit != nullptr && patience.limit->passed()) return Received::kTimedOut;
  }
}

Received PipeEnd::ReadAll(const Patience& patience, char* room, uint32_t lengthBytes) {
  while (lengthBytes != 0) {
    uint32_t availableBytes = 0;
    const Received looked = Look(patience, &availableBytes);
    if (looked != Received::kMessage) return looked;
    uint32_t readBytes = 0;
    const uint32_t status = KivSdPipeRead(ThisContext(), &pipe_, room,
                                          std::min(availableBytes, lengthBytes), &readBytes);
    if (status != 0) return Received::kGone;
    room += readBytes;
    lengthBytes -= readBytes;
  }
  return Received::kMessage;
}

Received PipeEnd::Glance() {
  const TimeLimit atOnce(0);
  uint32_t availableBytes = 0;
  return Look({.limit = &atOnce, .stop = nullptr}, &availableBytes);
}

Received PipeEnd::Receive(const Patience& patience, std::string_view* text) {
  char length[kLengthBytes];
  Received read = ReadAll(patience, length, kLengthBytes);
  if (read != Received::kMessage) return read;
  const uint32_t lengthBytes = ReadLength(length);
  if (lengthBytes > longestBytes_) return Received::kTooLong;
  if (!received_.Resize(lengthBytes, 0)) return Received::kNoMemory;
  read = ReadAll(patience, received_.data(), lengthBytes);
  *text = {received_.data(), lengthBytes};
  return read;
}

bool PipeEnd::AwaitGone(const Patience& patience) {
  Received read = Received::kMessage;
  char byte = 0;
  while (read == Received::kMessage) read = ReadAll(patience, &byte, 1);
  return read == Received::kGone;
}

}  // namespace cellhost
