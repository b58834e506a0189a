#include "os/machine.h"

#include <pwd.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "os/lnx/cgroup.h"
#include "os/lnx/paging_space.h"
#include "os/lnx/text_file.h"

namespace kiv::os {
namespace {

constexpr char kRoot[] = "";
constexpr unsigned long kLargestNumber = 255;  // of a version, which has 8 bits

// Where Linux keeps the configuration of the whole system.
constexpr char kSystemDirectory[] = "/etc";

// The user's record may name many texts; the buffer grows up to the second size.
constexpr size_t kFirstUserBytes = 1024;
constexpr size_t kMostUserBytes = 1 << 20;

uint32_t VersionNumber(const char* text, const char** end) {
  char* stop = nullptr;
  const unsigned long number = std::strtoul(text, &stop, 10);
  *end = stop;
  return static_cast<uint32_t>(std::min(number, kLargestNumber));
}

// Copies a text with its terminator.
Result Store(const char* text, char* buffer, uint32_t sizeBytes) {
  const size_t bytes = std::strlen(text) + 1;
  if (bytes > sizeBytes) return {false, ERANGE};
  std::memcpy(buffer, text, bytes);
  return {true, 0};
}

// A user without an entry is named by number.
Result StoreUserNumber(uid_t user, char* buffer, uint32_t sizeBytes) {
  char number[24];
  std::snprintf(number, sizeof number, "%u", user);
  return Store(number, buffer, sizeBytes);
}

}  // namespace

const uint32_t kErrorBufferTooSmall = ERANGE;

uint32_t SystemVersion() {
  utsname system = {};
  if (uname(&system) != 0) return 0;
  const char* end = nullptr;
  const uint32_t major = VersionNumber(system.release, &end);
  const uint32_t minor = *end == '.' ? VersionNumber(end + 1, &end) : 0;
  return major | minor << 8;
}

const char* SystemName(uint32_t /*version*/) { return "Linux"; }

// Without /proc, free memory is the best that is known of the available one.
MemoryStatus PhysicalMemory() {
  struct sysinfo known = {};
  MemoryStatus memory = {};
  if (sysinfo(&known) == 0) {
    memory = {uint64_t{known.totalram} * known.mem_unit, uint64_t{known.freeram} * known.mem_unit};
  }
  TextFile file("/proc/meminfo");
  do {
    char name[32];
    uint64_t kib = 0;
    if (!file.ReadField(name, sizeof name) || !file.ReadNumber(&kib)) continue;
    if (std::strcmp(name, "MemTotal:") == 0) memory.totalBytes = kib * 1024;
    if (std::strcmp(name, "MemAvailable:") == 0) memory.availableBytes = kib * 1024;
  } while (file.NextLine());
  LimitMemoryByGroup(kRoot, &memory);
  return memory;
}

ValueResult<MemoryStatus> PagingMemory() {
  ValueResult<MemoryStatus> paging = PagingSpace(kRoot);
  if (paging.ok) LimitPagingByGroup(kRoot, &paging.value);
  return paging;
}

ValueResult<uint32_t> SystemDirectory(char* buffer, uint32_t sizeBytes) {
  constexpr uint32_t kBytes = sizeof kSystemDirectory;
  if (!Store(kSystemDirectory, buffer, sizeBytes).ok) return {true, 0, kBytes};
  return {true, 0, kBytes - 1};
}

Result LoginName(char* buffer, uint32_t sizeBytes) {
  const uid_t user = getuid();
  for (size_t size = kFirstUserBytes; size <= kMostUserBytes; size *= 4) {
    auto* texts = static_cast<char*>(std::malloc(size));
    if (texts == nullptr) return {false, ENOMEM};
    passwd entry = {};
    passwd* found = nullptr;
    const int error = getpwuid_r(user, &entry, texts, size, &found);
    const Result stored = found != nullptr ? Store(found->pw_name, buffer, sizeBytes)
                                           : StoreUserNumber(user, buffer, sizeBytes);
    std::free(texts);
    if (error != ERANGE) return stored;
  }
  return StoreUserNumber(user, buffer, sizeBytes);
}

}  // namespace kiv::os
