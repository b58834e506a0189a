// Serving clients; see connection.h.
#include "server/connection.h"

#include <stdio.h>

#include <charconv>

#include "host/complain.h"
#include "host/host.h"
#include "host/memory_manager.h"
#include "server/pipe_watch.h"
#include "server/protocol.h"

namespace cellhost {
namespace {

constexpr uint32_t kStatsBytes = 640;  // numbers with their names
constexpr uint32_t kChunkBytes = 32;
constexpr uint32_t kSegmentBytes = KIV_SEGMENT_NAME_BYTES + 32;
constexpr uint32_t kStallTimeouts = 10;  // for a client to take its answer out of its chunk

struct MemoryText {
  char text[256];
};

MemoryText MemoryInUse() {
  const MemoryTotals totals = MemoryTotalsNow();
  if (!totals.counted) return {"not counted"};
  const MemoryBlocks blocks = MemoryBlocksNow();
  const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
  MemoryText text;
  snprintf(text.text, sizeof text.text,
           "%llu outside heaps, %llu in heaps, %llu aligned, at most %llu, "
           "blocks allocated %llu, freed %llu",
           number(totals.outsideHeaps), number(totals.inHeaps), number(totals.aligned),
           number(totals.peak), number(blocks.allocated), number(blocks.freed));
  return text;
}

// Nothing, or seconds.
bool ReadBackupSeconds(std::string_view text, uint32_t* seconds) {
  if (text.empty()) return true;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, *seconds);
  return error == std::errc() && stop == end && *seconds >= 1 && *seconds <= kBackupSecondsMax;
}

}  // namespace

bool Connection::Start(Service* service, const char* pipe, bool first) {
  service_ = service;
  return request_.Create() && pipe_.Create(pipe, kConnections, first) &&
         thread_.Start([](void* self) { static_cast<Connection*>(self)->Run(); }, this);
}

void Connection::Run() {
  while (!service_->stopping()) {
    const Accepted accepted = pipe_.Accept();
    if (service_->stopping()) return;  // it was WakeAccept, or came too late
    if (accepted == Accepted::kFailed) return service_->Fail();
    const uint32_t client = service_->clients.fetch_add(1, std::memory_order_relaxed) + 1;
    if (accepted == Accepted::kClient) {
      ServeClient(client);
    } else {
      service_->lost.fetch_add(1, std::memory_order_relaxed);
    }
    pipe_.CutOff();
  }
}

void Connection::ServeClient(uint32_t client) {
  Next next = Next::kGoOn;
  while (next == Next::kGoOn) next = ServeRequest(client);
  // Only now: until it has gone, the client may touch its chunk.
  if (next != Next::kCut || AwaitGone()) chunk_.GiveBack();
  if (next == Next::kLost) service_->lost.fetch_add(1, std::memory_order_relaxed);
}

// Waits until a client that is not served any more has gone: a while, so that it can read what it
// was told; but one with a chunk as long as it takes, or until the server ends. Whether it has.
bool Connection::AwaitGone() {
  const TimeLimit goodbye(service_->goodbyeMs);
  if (pipe_.AwaitGone({.limit = &goodbye, .stop = nullptr}) || !chunk_.taken()) return true;
  return pipe_.AwaitGone({.limit = nullptr, .stop = &service_->stop});
}

Connection::Next Connection::ServeRequest(uint32_t client) {
  // A client that never pauses must not keep the server from ending.
  if (service_->stopping()) return Next::kCut;
  return chunk_.serves() ? ServeChunk(client) : ServePipe(client);
}

Connection::Next Connection::ServeChunk(uint32_t client) {
  std::string_view message;
  const Carried came = chunk_.Await(&message);
  if (came == Carried::kDone || came == Carried::kNonsense) {
    overChunk_ = true;
    const Next next = came == Carried::kDone
                          ? ObeyOverChunk(client, message)
                          : Tell("ERROR a request over a chunk is one text with a zero byte");
    overChunk_ = false;
    return next;
  }
  switch (pipe_.Glance()) {
    case Received::kMessage:
      return ServePipe(client);
    case Received::kGone:
      return Next::kLost;
    default:
      return Next::kGoOn;
  }
}

Connection::Next Connection::ServePipe(uint32_t client) {
  std::string_view message;
  switch (pipe_.Receive({.limit = nullptr, .stop = &service_->stop}, &message)) {
    case Received::kMessage:
      return Obey(client, message);
    case Received::kGone:
      return Next::kLost;
    case Received::kTooLong:
      // Where the next message starts is not known any more.
      return Tell("ERROR the request is too long; the server takes 8192 bytes") == Next::kLost
                 ? Next::kLost
                 : Next::kCut;
    case Received::kStopped:
    case Received::kTimedOut:
    case Received::kNoMemory:
      break;
  }
  return Next::kCut;
}

Connection::Next Connection::Obey(uint32_t client, std::string_view message) {
  const std::string_view whole = message;
  const std::string_view verb = TakeVerb(&message);
  if (verb == kQuery) return HandOver(RequestKind::kRead, message);
  if (verb == kPut) return HandOver(RequestKind::kWrite, whole);
  if (verb == kHog) return HandOver(RequestKind::kMemory, whole);
  if (verb == kChunk) return TellChunk(client);
  if (verb == kStats) return TellStats();
  if (verb == kBackup) return TellBackup(message);
  if (verb == kSegment) return TellSegment();
  if (verb == kBye) return Next::kLeft;
  if (verb != kStop) {
    return Tell(
        "ERROR no such command; send CHUNK, STATS, QUERY and a query, PUT and a cell and a number, "
        "HOG and a number, BACKUP, SEGMENT, STOP or BYE");
  }
  const Next next = Tell("OK stopping");
  service_->Stop();
  return next;
}

Connection::Next Connection::ObeyOverChunk(uint32_t client, std::string_view message) {
  std::string_view rest = message;
  const std::string_view verb = TakeVerb(&rest);
  if (verb == kStop || verb == kSegment) return Tell("ERROR send that over the pipe");
  if (verb != kBye) return Obey(client, message);
  chunk_.GiveBack();
  return Next::kGoOn;
}

Connection::Next Connection::Tell(std::string_view reply) {
  return Tell(reply, reply.starts_with(kOk) ? FinalCode::kDone : FinalCode::kBad);
}

Connection::Next Connection::Tell(std::string_view reply, FinalCode code) {
  if (overChunk_) return TellOverChunk(reply, code);
  return pipe_.Send(reply) ? Next::kGoOn : Next::kLost;
}

// A client that does not take its answer is either gone, which the pipe shows, or has to say there
// what is to become of its chunk.
Connection::Next Connection::TellOverChunk(std::string_view reply, FinalCode code) {
  TakeVerb(&reply);
  PipeWatch watch(&pipe_, kStallTimeouts, &service_->stop);
  chunk_.Answer(reply, code, &watch);
  return Next::kGoOn;
}

Connection::Next Connection::TellChunk(uint32_t client) {
  char reply[kChunkBytes];
  snprintf(reply, sizeof reply, "OK %u", client);
  return Tell(reply);
}

Connection::Next Connection::TellSegment() {
  char reply[kSegmentBytes];
  switch (chunk_.Take(&service_->segment)) {
    case Taken::kOne:
      snprintf(reply, sizeof reply, "OK %s %d", service_->segment.name(), chunk_.chunk());
      break;
    case Taken::kNone:
      snprintf(reply, sizeof reply, "ERROR %.*s", static_cast<int>(kAllTaken.size()),
               kAllTaken.data());
      break;
    case Taken::kFailed:
      snprintf(reply, sizeof reply, "ERROR the segment is broken; use the pipe");
      break;
  }
  return Tell(reply);
}

Connection::Next Connection::TellStats() {
  uint32_t cells = 0;
  if (!service_->cells.Count(&cells)) {
    return Tell("ERROR no memory for the counts", FinalCode::kRefused);
  }
  const uint64_t queries = service_->queries.load(std::memory_order_relaxed);
  const uint64_t puts = service_->puts.load(std::memory_order_relaxed);
  char reply[kStatsBytes];
  snprintf(reply, sizeof reply,
           "OK rows %llu, cells %u, clients %u, lost %u, queries %llu, puts %llu, uptime %llu s, "
           "lease guard asked %u times, memory %s",
           static_cast<unsigned long long>(service_->rows), cells,
           service_->clients.load(std::memory_order_relaxed),
           service_->lost.load(std::memory_order_relaxed), static_cast<unsigned long long>(queries),
           static_cast<unsigned long long>(puts),
           static_cast<unsigned long long>(service_->uptimeSeconds()),
           Host().leaseChecks.load(std::memory_order_relaxed), MemoryInUse().text);
  return Tell(reply);
}

// Here and not by a worker: those may all have PUTs that wait for the end of a backup's pause.
Connection::Next Connection::TellBackup(std::string_view seconds) {
  uint32_t maxSeconds = 0;
  if (!ReadBackupSeconds(seconds, &maxSeconds)) {
    return Tell("ERROR write BACKUP, or BACKUP and how many seconds PUTs may wait, 1 to 20");
  }
  if (service_->files == nullptr) {
    return Tell("ERROR the server has no files; start it with --data and a folder");
  }
  BackupReport report;
  const bool made = service_->files->MakeBackup(maxSeconds, &report);
  char reply[sizeof report.text + 8];
  snprintf(reply, sizeof reply, "%s %s", made ? "OK" : "ERROR", report.text);
  return Tell(reply);
}

Connection::Next Connection::HandOver(RequestKind kind, std::string_view text) {
  request_.kind = kind;
  request_.text = text;
  // Without a wait the worker might still use the request, so that nothing more can be said.
  if (!service_->ring.Put(&request_) || !request_.AwaitDone()) {
    service_->Fail();
    return Next::kCut;
  }
  const HostArray<char>& reply = request_.reply;
  if (reply.count() == 0) return Tell("ERROR no memory for the answer", FinalCode::kRefused);
  return Tell({reply.data(), reply.count()}, request_.code);
}

}  // namespace cellhost
