// Doing what requests ask; see worker.h.
#include "server/worker.h"

#include <string.h>

#include <algorithm>

#include "cube/put_order.h"
#include "cube/query.h"
#include "host/scratch.h"
#include "server/hog.h"
#include "server/protocol.h"
#include "server/service.h"

namespace cellhost {
namespace {

// "OK answer" or "ERROR reason"; nothing when there is no memory for it.
void SetReply(FinalCode code, std::string_view text, Request* request) {
  const std::string_view verb = code == FinalCode::kDone ? kOk : kError;
  HostArray<char>& reply = request->reply;
  request->code = code;
  reply.Clear();
  if (!reply.Resize(static_cast<uint32_t>(verb.size() + 1 + text.size()), ' ')) return;
  std::copy(verb.begin(), verb.end(), reply.data());
  std::copy(text.begin(), text.end(), reply.data() + verb.size() + 1);
}

// Every fault can be told, however short memory is.
static_assert(kError.size() + 1 + sizeof Fault::text <= kShortReplyBytes);

void SetFault(const Fault& fault, Request* request) {
  SetReply(fault.noMemory ? FinalCode::kRefused : FinalCode::kBad, fault.text, request);
}

void Answer(Service* service, Request* request) {
  ScratchRoom words;
  Query query;
  Fault fault;
  if (!ParseQuery(request->text, &words, &query, &fault)) return SetFault(fault, request);
  std::string_view answer;
  if (!service->cells.Answer(query, &answer)) {
    return SetReply(FinalCode::kRefused, "no memory for the answer", request);
  }
  if (answer.size() > kReplyBytesMax - kOk.size() - 1) {
    return SetReply(FinalCode::kBad, "the answer is too long; ask for fewer members", request);
  }
  SetReply(FinalCode::kDone, answer, request);
  service->queries.fetch_add(1, std::memory_order_relaxed);
}

void Put(Service* service, Request* request) {
  ScratchRoom words;
  PutOrder order;
  Fault fault;
  if (!ParsePut(request->text, &words, &order, &fault) || !service->Put(order, &fault)) {
    return SetFault(fault, request);
  }
  SetReply(FinalCode::kDone, kStored, request);
  service->puts.fetch_add(1, std::memory_order_relaxed);
}

void TryMemory(Request* request) {
  ScratchRoom words;
  Fault fault;
  uint32_t mebibytes = 0;
  if (!ParseHog(request->text, &words, &mebibytes, &fault)) return SetFault(fault, request);
  SetReply(FinalCode::kDone, Hog(mebibytes).text, request);
}

void Do(Service* service, Request* request) {
  switch (request->kind) {
    case RequestKind::kRead:
      return Answer(service, request);
    case RequestKind::kWrite:
      return Put(service, request);
    case RequestKind::kMemory:
      return TryMemory(request);
  }
}

}  // namespace

void RunWorker(void* service) {
  Service* shared = static_cast<Service*>(service);
  while (Request* request = shared->ring.Take()) {
    Do(shared, request);
    ResetScratch();
    request->SignalDone();
  }
}

}  // namespace cellhost
