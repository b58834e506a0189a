#include "soak/echo_server.h"

#include "kivsdu/status.h"
#include "soak/check.h"

namespace kiv::soak {
namespace {

// A wait for a message or for the half of a killed process ends soon, to look at the stop flag.
constexpr uint32_t kTimeoutMs = 50;

}  // namespace

EchoServer::EchoServer(const std::string& prefix, uint32_t process)
    : end_(EchoName(prefix, process), kEchoServerKind, kTimeoutMs) {}

EchoServer::~EchoServer() { Stop(); }

void EchoServer::Start() {
  end_.Prepare(kEchoChunk);
  stop_.store(false);
  thread_ = std::thread([this] { Serve(); });
}

void EchoServer::Stop() {
  stop_.store(true);
  if (thread_.joinable()) thread_.join();
}

void EchoServer::Serve() {
  Now("echo");
  EchoMessage message;
  while (!stop_.load()) {
    const uint32_t received = end_.Receive(kEchoChunk, &message, sizeof message);
    if (!DoneOr(received, KIV_ST_SEM_TIMEOUT, "KivReadSharedMemChunk")) continue;
    while (!DoneOr(end_.Send(kEchoChunk, &message, sizeof message), KIV_ST_SEM_TIMEOUT,
                   "KivWriteSharedMemChunk")) {
      if (stop_.load()) return;
    }
    messages_.fetch_add(1);
  }
}

}  // namespace kiv::soak
