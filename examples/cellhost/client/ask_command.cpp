// `cellhost ask` and `cellhost send`; see ask_command.h.
#include "client/ask_command.h"

#include <stdio.h>

#include "channel/protocol.h"
#include "cube/answer_check.h"
#include "cube/query.h"
#include "host/complain.h"
#include "host/exit_code.h"
#include "host/line_file.h"

namespace cellhost {
namespace {

constexpr uint32_t kMsPerSecond = 1000;

void PrintLine(std::string_view line) {
  printf("%.*s\n", static_cast<int>(line.size()), line.data());
  fflush(stdout);  // for a reader at the other end of a pipe
}

// Sends one query. Prints the answer, or compares it if there is a check.
bool AskOne(ServerClient* server, const Query& query, AnswerCheck* check) {
  RequestText request;
  Reply reply;
  if (!request.Set(kQuery, query.text) || !server->Ask(request.text(), &reply)) return false;
  if (!reply.ok) {
    return Complain("'%.*s': %.*s", static_cast<int>(query.text.size()), query.text.data(),
                    static_cast<int>(reply.text.size()), reply.text.data());
  }
  if (check != nullptr) return check->Compare(reply.text);
  PrintLine(reply.text);
  return true;
}

bool AskAll(ServerClient* server, const LineFile<Query>& queries, AnswerCheck* check) {
  for (uint32_t at = 0; at < queries.count(); ++at) {
    if (!AskOne(server, queries.item(at), check)) return false;
  }
  return true;
}

}  // namespace

int AskCommand(const AskOptions& options) {
  LineFile<Query> queries(ParseQuery);
  AnswerCheck expected;
  AnswerCheck* check = options.answers.empty() ? nullptr : &expected;
  if (!queries.Read(options.queries.c_str(), "--queries")) return kExitFailed;
  if (check != nullptr && !check->Read(options.answers.c_str(), "--answers")) return kExitFailed;

  ServerClient server;
  if (!server.Open(options.road, options.pipe.c_str(), options.waitSeconds * kMsPerSecond))
    return kExitFailed;
  do {
    if (!AskAll(&server, queries, check)) return kExitFailed;
  } while (options.endless && queries.count() != 0);
  server.Leave();
  if (check == nullptr || check->Conclude()) return kExitDone;
  return kExitAnswersDiffer;
}

int SendCommand(const SendOptions& options) {
  ServerClient server;
  Reply reply;
  if (!server.Open(options.road, options.pipe.c_str(), options.waitSeconds * kMsPerSecond) ||
      !server.Ask(options.command, &reply)) {
    return kExitFailed;
  }
  if (reply.ok) {
    PrintLine(reply.text);
  } else {
    Complain("%.*s", static_cast<int>(reply.text.size()), reply.text.data());
  }
  server.Leave();
  return reply.ok ? kExitDone : kExitFailed;
}

}  // namespace cellhost
