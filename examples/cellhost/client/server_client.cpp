// A client over the pipe or over shared memory; see server_client.h.
#include "client/server_client.h"

namespace cellhost {
namespace {

constexpr uint32_t kChunkWaitMs = 10 * 1000;

}  // namespace

bool ServerClient::Open(Road road, const char* pipe, uint32_t startWaitMs) {
  road_ = road;
  if (road == Road::kPipe) return pipe_.Open(pipe, startWaitMs);
  return segment_.Open(pipe, startWaitMs) && segment_.AwaitChunk(kChunkWaitMs);
}

bool ServerClient::Ask(std::string_view request, Reply* reply) {
  return road_ == Road::kPipe ? pipe_.Ask(request, reply) : segment_.Ask(request, reply);
}

void ServerClient::Leave() {
  if (road_ == Road::kPipe) return pipe_.Leave();
  segment_.Leave();
}

}  // namespace cellhost
