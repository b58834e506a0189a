// A small host for the tests of kivsd: publishes its memory, holds named objects, runs a program of
// the current folder, and returns the program's exit code.
//
//   kivsd_host PROGRAM ARGUMENT ...
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "kivsdu/kivsdu.h"
#include "kivsdu/publisher.hpp"

namespace {

constexpr uint64_t kLargeBytes = 40 * 1024 * 1024;
constexpr uint32_t kIntervalMs = 20;

std::string CommandOf(int count, char** arguments) {
  std::string command = (std::filesystem::path(".") / arguments[1]).make_preferred().string();
  for (int i = 2; i < count; ++i) command += std::string(" ") + arguments[i];
  return command;
}

bool Succeeded(uint32_t status, const char* action) {
  if (status != KIV_ST_OK) std::fprintf(stderr, "kivsd_host: cannot %s: %u\n", action, status);
  return status == KIV_ST_OK;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return EXIT_FAILURE;
  KivHandle mutex = nullptr;
  void* large = nullptr;
  kivsdu::MemoryPublisher publisher;
  publisher.CountMessage(KIV_ST_MSG_LIMIT_NEAR);
  const bool ready =
      Succeeded(adMemThreadHeapInit(1, nullptr, "", 1), "start the manager") &&
      Succeeded(adMalloc(nullptr, kLargeBytes, &large, "kivsd_host", 1), "allocate") &&
      Succeeded(KivSdMutexCreate(nullptr, "kivsd_host_mutex", &mutex), "make a mutex") &&
      Succeeded(publisher.Start("kivsd_host", kIntervalMs), "publish");
  if (!ready) return EXIT_FAILURE;
  std::fflush(stdout);
  const int status = std::system(CommandOf(count, arguments).c_str());
  publisher.Stop();
  KivSdMutexClose(nullptr, &mutex);
  adFree(large, "kivsd_host", 1);
  // POSIX keeps the exit code in the second byte.
  return status > 255 ? status / 256 : status;
}
