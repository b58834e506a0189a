// The demo's clients that change cells; see demo_writer.h.
#include "demo/demo_writer.h"

#include <stdio.h>

#include "channel/protocol.h"
#include "cube/measure.h"
#include "host/complain.h"
#include "host/console_report.h"

namespace cellhost {
namespace {

constexpr std::string_view kCell = "CELL";
constexpr std::string_view kColon = ": ";
constexpr int32_t kForEver = -1;  // each request has its own limit

}  // namespace

bool DemoWriter::Start(Road road, const char* pipe, const LineFile<PutOrder>& orders,
                       uint32_t first, uint32_t step, uint32_t number) {
  road_ = road;
  pipe_ = pipe;
  orders_ = &orders;
  first_ = first;
  step_ = step;
  number_ = number;
  return thread_.Start([](void* self) { static_cast<DemoWriter*>(self)->Run(); }, this);
}

void DemoWriter::Run() { done_ = StoreAll(); }

bool DemoWriter::StoreAll() {
  ServerClient server;
  if (!server.Open(road_, pipe_, 0)) return false;
  for (uint32_t at = first_; at < orders_->count(); at += step_) {
    const PutOrder& order = orders_->item(at);
    if (!Store(&server, order) || !ReadBack(&server, order)) return false;
    ++stored_;
  }
  server.Leave();
  return true;
}

bool DemoWriter::Store(ServerClient* server, const PutOrder& order) {
  Reply reply;
  if (!server->Ask(order.text, &reply)) return false;
  if (reply.ok && reply.text == kStored) return true;
  return Complain("'%.*s': %.*s", static_cast<int>(order.text.size()), order.text.data(),
                  static_cast<int>(reply.text.size()), reply.text.data());
}

bool DemoWriter::ReadBack(ServerClient* server, const PutOrder& order) {
  RequestText query;
  RequestText request;
  Reply reply;
  if (!query.Set(kCell, order.cell) || !request.Set(kQuery, query.text()) ||
      !server->Ask(request.text(), &reply)) {
    return false;
  }
  std::string_view answer = reply.text;
  double value = 0;
  if (reply.ok && answer.starts_with(query.text())) {
    answer.remove_prefix(query.text().size());
    if (answer.starts_with(kColon) && ReadMeasure(answer.substr(kColon.size()), &value) &&
        value == order.value) {
      return true;
    }
  }
  return Complain("after '%.*s' the server says '%.*s'", static_cast<int>(order.text.size()),
                  order.text.data(), static_cast<int>(reply.text.size()), reply.text.data());
}

bool DemoWriter::Finish() {
  thread_.EndsWithin(kForEver);
  ShortText name;
  snprintf(name.text, sizeof name.text, "Client %u", number_);
  Item(name.text, "%u cells put, each read back at once%s", stored_,
       done_ ? "" : "; then it failed");
  return done_;
}

}  // namespace cellhost
