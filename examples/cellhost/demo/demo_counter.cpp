// Clients that count in a cell; see demo_counter.h.
#include "demo/demo_counter.h"

#include <charconv>

#include "channel/protocol.h"
#include "host/complain.h"
#include "host/waiting.h"

namespace cellhost {
namespace {

constexpr uint32_t kReplyLimitMs = 30 * 1000;
constexpr int32_t kForEver = -1;  // each request has its own limit

}  // namespace

bool DemoCounter::Start(const char* pipe, std::string_view cell) {
  pipe_ = pipe;
  cell_ = cell;
  return thread_.Start([](void* self) { static_cast<DemoCounter*>(self)->Run(); }, this);
}

void DemoCounter::Run() {
  PipeClient server;
  if (!server.Open(pipe_, 0)) return;
  bool gone = false;
  while (Store(&server, stored() + 1, &gone)) stored_.fetch_add(1, std::memory_order_relaxed);
  done_ = gone;
}

// Sends one PUT. Does not report the server's end: the demo kills it meanwhile.
bool DemoCounter::Store(PipeClient* server, uint32_t number, bool* gone) {
  const std::string order = std::string(kPut) + " " + cell_ + " " + std::to_string(number);
  const TimeLimit limit(kReplyLimitMs);
  std::string_view reply;
  const Received received = server->Send(order)
                                ? server->Receive({.limit = &limit, .stop = nullptr}, &reply)
                                : Received::kGone;
  *gone = received == Received::kGone;
  if (*gone) return false;
  if (received != Received::kMessage) return Complain("'%s' is not answered", order.c_str());
  if (TakeVerb(&reply) == kOk && reply == kStored) return true;
  return Complain("'%s': %.*s", order.c_str(), static_cast<int>(reply.size()), reply.data());
}

bool DemoCounter::Finish() {
  thread_.EndsWithin(kForEver);
  return done_;
}

bool DemoCounter::Ask(PipeClient* server, uint32_t* number) const {
  const std::string query = std::string(kQuery) + " CELL " + cell_;
  Reply reply;
  if (!server->Ask(query, &reply)) return false;
  const size_t blank = reply.text.find_last_of(' ');
  const std::string_view digits = reply.text.substr(blank + 1);
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, *number);
  if (reply.ok && error == std::errc() && stop == end) return true;
  return Complain("'%s': %.*s", query.c_str(), static_cast<int>(reply.text.size()),
                  reply.text.data());
}

}  // namespace cellhost
