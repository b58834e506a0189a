// Paths of named pipes: \\.\PIPE\name on this machine, \\server\PIPE\name on another.
#include "sdipcw32/pipe_path.h"

#include <cstdio>
#include <cstring>

#include "kivsdu/memory.h"
#include "kivsdu/status.h"
#include "text.h"

namespace kiv {
namespace {

constexpr char kSource[] = "sd/sdipcw32";
constexpr char kLocalServer[] = "local";
constexpr char kThisMachine[] = ".";
constexpr char kFolder[] = "\\PIPE\\";
constexpr size_t kFixedBytes = sizeof "\\\\" + sizeof kFolder - 1;  // with one terminator

bool IsLocal(const char* server) {
  return server == nullptr || EqualsIgnoringCase(server, kLocalServer);
}

}  // namespace

PipePath::PipePath(const char* server, const char* name, uint32_t line, uint32_t freeLine)
    : freeLine_(freeLine), text_(nullptr) {
  const char* machine = IsLocal(server) ? kThisMachine : server;
  const size_t sizeBytes = kFixedBytes + std::strlen(machine) + std::strlen(name);
  KivSdContext outcome = {};
  void* block = nullptr;
  status_ = KivSdMemAlloc(&outcome, 0, static_cast<uint32_t>(sizeBytes), &block, kSource, line);
  osError_ = outcome.osError;
  if (status_ != KIV_ST_OK) return;
  text_ = static_cast<char*>(block);
  std::sprintf(text_, "\\\\%s%s%s", machine, kFolder, name);
}

PipePath::~PipePath() {
  if (text_ != nullptr) static_cast<void>(KivSdMemFree(nullptr, text_, kSource, freeLine_));
}

}  // namespace kiv
