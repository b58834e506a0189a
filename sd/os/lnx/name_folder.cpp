#include "os/lnx/name_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr mode_t kOthersMask = S_IRWXG | S_IRWXO;

// A longer file name is cut here, and a hash of the whole name follows.
constexpr size_t kCutAt = 200;
constexpr size_t kEncodedByteLength = 3;             // %XX
constexpr uint64_t kHashStart = 0xCBF29CE484222325;  // FNV-1a, 64 bits
constexpr uint64_t kHashFactor = 0x100000001B3;

bool IsFolder(const char* path) {
  struct stat found = {};
  return path != nullptr && *path == '/' && stat(path, &found) == 0 && S_ISDIR(found.st_mode);
}

const char* ParentFolder() {
  const char* runtimeFolder = getenv("XDG_RUNTIME_DIR");
  if (IsFolder("/dev/shm")) return "/dev/shm";
  return IsFolder(runtimeFolder) ? runtimeFolder : "/tmp";
}

Result CheckPrivate(int folder) {
  struct stat found = {};
  if (fstat(folder, &found) != 0) return {false, static_cast<uint32_t>(errno)};
  const bool isPrivate = found.st_uid == geteuid() && (found.st_mode & kOthersMask) == 0;
  return isPrivate ? Result{true, 0} : Result{false, EACCES};
}

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

bool IsTooLong(const char* name) {
  const size_t bytes = strnlen(name, kMaxNameBytes + 1);
  size_t characters = 0;
  for (size_t i = 0; i < bytes; ++i) characters += IsContinuation(name[i]) ? 0U : 1U;
  return bytes > kMaxNameBytes || characters > kMaxNameCharacters;
}

bool StandsForItself(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '_' || byte == '-' || byte == '.';
}

char* AppendEncoded(char* end, char byte) {
  if (!StandsForItself(byte)) {
    return end +
           std::sprintf(end, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  }
  *end = byte;
  return end + 1;
}

uint64_t HashOf(const char* name) {
  uint64_t hash = kHashStart;
  for (; *name != '\0'; ++name) hash = (hash ^ static_cast<unsigned char>(*name)) * kHashFactor;
  return hash;
}

}  // namespace

Result NameFolderPath(char* path, size_t sizeBytes) {
  const int length = std::snprintf(path, sizeBytes, "%s/kivsdu-%u", ParentFolder(),
                                   static_cast<unsigned>(geteuid()));
  const bool fits = static_cast<size_t>(length) < sizeBytes;
  return fits ? Result{true, 0} : Result{false, ENAMETOOLONG};
}

ValueResult<int> OpenNameFolder() {
  char path[PATH_MAX];
  const Result named = NameFolderPath(path, sizeof path);
  if (!named.ok) return {false, named.error, -1};
  if (mkdir(path, S_IRWXU) != 0 && errno != EEXIST) {
    return {false, static_cast<uint32_t>(errno), -1};
  }
  const int folder = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder == -1) return {false, static_cast<uint32_t>(errno), -1};
  const Result checked = CheckPrivate(folder);
  if (checked.ok) return {true, 0, folder};
  close(folder);
  return {false, checked.error, -1};
}

Result FileOfName(char purpose, const char* name, NameFile* file) {
  if (IsTooLong(name)) return {false, ENAMETOOLONG};
  char* end = file->text;
  *end++ = purpose;
  *end++ = '-';
  const char* next = name;
  while (*next != '\0' && end + kEncodedByteLength <= file->text + kCutAt) {
    end = AppendEncoded(end, *next++);
  }
  *end = '\0';
  if (*next != '\0') std::sprintf(end, "~%016llx", static_cast<unsigned long long>(HashOf(name)));
  return {true, 0};
}

}  // namespace kiv::os
