#include "os/lnx/cgroup.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "os/lnx/text_file.h"

namespace kiv::os {
namespace {

constexpr size_t kPathBytes = 1024;  // a group with a longer path is not found
constexpr char kMounts[] = "/proc/self/mountinfo";
constexpr char kGroups[] = "/proc/self/cgroup";

enum class Version { kNone, kFirst, kSecond };

// A group of this process, and the folder where its hierarchy is mounted.
struct Group {
  Version version;
  size_t mountLength;
  char path[kPathBytes];
};

// Whether a list with commas has the item.
bool HasItem(const char* list, const char* item) {
  const size_t length = std::strlen(item);
  for (const char* found = std::strstr(list, item); found != nullptr;
       found = std::strstr(found + 1, item)) {
    const bool begins = found == list || found[-1] == ',';
    if (begins && (found[length] == ',' || found[length] == '\0')) return true;
  }
  return false;
}

struct GroupMount {
  char root[kPathBytes];
  char point[kPathBytes];
};

// Where the hierarchy with the controller is mounted.
bool FindMount(const char* root, Version version, const char* controller, GroupMount* mount) {
  char path[kPathBytes];
  std::snprintf(path, sizeof path, "%s%s", root, kMounts);
  TextFile file(path);
  do {
    char field[64] = "";
    file.SkipFields(3);
    file.ReadField(mount->root, sizeof mount->root);
    file.ReadField(mount->point, sizeof mount->point);
    while (std::strcmp(field, "-") != 0 && file.ReadField(field, sizeof field)) {
    }
    file.ReadField(field, sizeof field);
    if (version == Version::kSecond && std::strcmp(field, "cgroup2") == 0) return true;
    if (version != Version::kFirst || std::strcmp(field, "cgroup") != 0) continue;
    char options[256];
    file.SkipFields(1);
    file.ReadField(options, sizeof options);
    if (HasItem(options, controller)) return true;
  } while (file.NextLine());
  return false;
}

// The path of the process's group inside its hierarchy. A line is "number:controllers:path".
bool FindPath(const char* root, Version version, const char* controller, char* path) {
  char name[kPathBytes];
  std::snprintf(name, sizeof name, "%s%s", root, kGroups);
  TextFile file(name);
  char line[kPathBytes];
  do {
    file.ReadRest(line, sizeof line);
    char* controllers = std::strchr(line, ':');
    char* found = controllers == nullptr ? nullptr : std::strchr(controllers + 1, ':');
    if (found == nullptr) continue;
    *found = '\0';
    ++controllers;
    const bool isSecond = *controllers == '\0';
    if (isSecond != (version == Version::kSecond)) continue;
    if (!isSecond && !HasItem(controllers, controller)) continue;
    std::snprintf(path, kPathBytes, "%s", found + 1);
    return true;
  } while (file.NextLine());
  return false;
}

// The path below the mount: a container sees its group mounted as the root, with or without a name
// space of its own. A group outside the name space has a path upwards and is not mounted.
const char* BelowMount(const char* path, const char* mountRoot) {
  const size_t length = std::strlen(mountRoot);
  if (std::strncmp(path, "/..", 3) == 0) return "";
  if (std::strcmp(mountRoot, "/") == 0) return path;
  const bool isBelow =
      std::strncmp(path, mountRoot, length) == 0 && (path[length] == '/' || path[length] == '\0');
  return isBelow ? path + length : "";
}

Group FindGroup(const char* root, Version version, const char* controller) {
  Group group = {Version::kNone, 0, ""};
  GroupMount mount;
  char path[kPathBytes];
  if (!FindMount(root, version, controller, &mount)) return group;
  if (!FindPath(root, version, controller, path)) return group;
  const char* below = BelowMount(path, mount.root);
  if (std::strcmp(below, "/") == 0) below = "";
  group.mountLength = std::strlen(root) + std::strlen(mount.point);
  const int length = std::snprintf(group.path, kPathBytes, "%s%s%s", root, mount.point, below);
  if (static_cast<size_t>(length) < kPathBytes) group.version = version;
  return group;
}

// Calls `visit` for the group and for each group above it.
template <typename Visit>
void ForEachLevel(Group group, Visit visit) {
  if (group.version == Version::kNone) return;
  for (;;) {
    visit(static_cast<const char*>(group.path));
    char* last = std::strrchr(group.path, '/');
    if (last == nullptr || last < group.path + group.mountLength) return;
    *last = '\0';
  }
}

// Reads up to `count` numbers from the first line of a group's file; the others stay unchanged.
void ReadNumbers(const char* group, const char* name, uint64_t* numbers, int count) {
  char path[kPathBytes + 64];
  std::snprintf(path, sizeof path, "%s/%s", group, name);
  TextFile file(path);
  for (int i = 0; i < count && file.ReadNumber(&numbers[i]); ++i) {
  }
}

uint64_t ReadOne(const char* group, const char* name, uint64_t otherwise) {
  ReadNumbers(group, name, &otherwise, 1);
  return otherwise;
}

// A value of a group's memory.stat, whose lines are "name value"; 0 if it has none.
uint64_t ReadStatistic(const char* group, const char* wanted) {
  char path[kPathBytes + 64];
  std::snprintf(path, sizeof path, "%s/memory.stat", group);
  TextFile file(path);
  do {
    char name[64];
    uint64_t value = 0;
    if (file.ReadField(name, sizeof name) && file.ReadNumber(&value) &&
        std::strcmp(name, wanted) == 0) {
      return value;
    }
  } while (file.NextLine());
  return 0;
}

// Processors for a quota of processor time in each period.
uint32_t ProcessorsOf(uint64_t quota, uint64_t period) {
  if (quota > INT64_MAX || period == 0 || period > INT64_MAX) return UINT32_MAX;
  const uint64_t count = quota / period + (quota % period != 0 ? 1 : 0);
  return static_cast<uint32_t>(std::clamp<uint64_t>(count, 1, UINT32_MAX));
}

// UINT64_MAX limits nothing.
void Limit(MemoryStatus* memory, uint64_t limit, uint64_t used) {
  memory->totalBytes = std::min(memory->totalBytes, limit);
  memory->availableBytes = std::min(memory->availableBytes, limit - std::min(limit, used));
}

uint64_t Without(uint64_t used, uint64_t cache) { return used - std::min(used, cache); }

}  // namespace

uint32_t GroupProcessors(const char* root) {
  uint32_t least = UINT32_MAX;
  ForEachLevel(FindGroup(root, Version::kSecond, "cpu"), [&](const char* group) {
    uint64_t limit[2] = {UINT64_MAX, 0};
    ReadNumbers(group, "cpu.max", limit, 2);
    least = std::min(least, ProcessorsOf(limit[0], limit[1]));
  });
  ForEachLevel(FindGroup(root, Version::kFirst, "cpu"), [&](const char* group) {
    const uint64_t quota = ReadOne(group, "cpu.cfs_quota_us", UINT64_MAX);
    const uint64_t period = ReadOne(group, "cpu.cfs_period_us", 0);
    least = std::min(least, ProcessorsOf(quota, period));
  });
  return least;
}

void LimitMemoryByGroup(const char* root, MemoryStatus* memory) {
  ForEachLevel(FindGroup(root, Version::kSecond, "memory"), [&](const char* group) {
    const uint64_t limit = ReadOne(group, "memory.max", UINT64_MAX);
    if (limit == UINT64_MAX) return;
    const uint64_t used = ReadOne(group, "memory.current", 0);
    Limit(memory, limit, Without(used, ReadStatistic(group, "inactive_file")));
  });
  ForEachLevel(FindGroup(root, Version::kFirst, "memory"), [&](const char* group) {
    const uint64_t limit = ReadOne(group, "memory.limit_in_bytes", UINT64_MAX);
    if (limit >= memory->totalBytes) return;  // version 1 writes "no limit" as a large number
    const uint64_t used = ReadOne(group, "memory.usage_in_bytes", 0);
    Limit(memory, limit, Without(used, ReadStatistic(group, "total_inactive_file")));
  });
}

void LimitPagingByGroup(const char* root, MemoryStatus* paging) {
  ForEachLevel(FindGroup(root, Version::kSecond, "memory"), [&](const char* group) {
    const uint64_t limit = ReadOne(group, "memory.swap.max", UINT64_MAX);
    if (limit != UINT64_MAX) Limit(paging, limit, ReadOne(group, "memory.swap.current", 0));
  });
}

}  // namespace kiv::os
