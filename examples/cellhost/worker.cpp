// Doing what requests ask; see worker.h.
#include "worker.h"

#include <string.h>

#include <algorithm>

#include "hog.h"
#include "protocol.h"
#include "put_order.h"
#include "query.h"
#include "scratch.h"
#include "service.h"

namespace cellhost {
namespace {

// "OK answer" or "ERROR reason"; nothing when there is no memory for it.
void SetReply(std::string_view verb, std::string_view text, HostArray<char>* reply) {
  reply->Clear();
  if (!reply->Resize(static_cast<uint32_t>(verb.size() + 1 + text.size()), ' ')) return;
  std::copy(verb.begin(), verb.end(), reply->data());
  std::copy(text.begin(), text.end(), reply->data() + verb.size() + 1);
}

void Answer(Service* service, Request* request) {
  ScratchRoom words;
  Query query;
  Fault fault;
  if (!ParseQuery(request->text, &words, &query, &fault)) {
    return SetReply(kError, fault.text, &request->reply);
  }
  std::string_view answer;
  if (!service->cells.Answer(query, &answer)) {
    return SetReply(kError, "no memory for the answer", &request->reply);
  }
  if (answer.size() > kReplyBytesMax - kOk.size() - 1) {
    return SetReply(kError, "the answer is too long; ask for fewer members", &request->reply);
  }
  SetReply(kOk, answer, &request->reply);
  service->queries.fetch_add(1, std::memory_order_relaxed);
}

void Put(Service* service, Request* request) {
  ScratchRoom words;
  PutOrder order;
  Fault fault;
  if (!ParsePut(request->text, &words, &order, &fault) || !service->Put(order, &fault)) {
    return SetReply(kError, fault.text, &request->reply);
  }
  SetReply(kOk, kStored, &request->reply);
  service->puts.fetch_add(1, std::memory_order_relaxed);
}

void TryMemory(Request* request) {
  ScratchRoom words;
  Fault fault;
  uint32_t mebibytes = 0;
  if (!ParseHog(request->text, &words, &mebibytes, &fault)) {
    return SetReply(kError, fault.text, &request->reply);
  }
  SetReply(kOk, Hog(mebibytes).text, &request->reply);
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
