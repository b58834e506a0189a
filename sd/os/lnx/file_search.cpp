// Linux: a search reads a folder's stream and compares each name with the pattern.
//
//   attribute   value   set for
//   read-only   0x001   a file that grants nobody the right to write
//   hidden      0x002   a name that begins with a dot, except "." and ".."
//   directory   0x010   a folder; not a link to one, so that nobody who removes a tree follows links
//   normal      0x080   an entry without another attribute
//   link        0x400   a symbolic link. Size and times are those of the file behind it, if there
//                       is one
//
// "." and ".." come first, as on Windows; the other names in the order of the folder.
#include "os/file_search.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/stat.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include "os/lnx/file_pattern.h"
#include "os/lnx/open_file.h"
#include "os/lnx/posix.h"
#include "os/lnx/slot_use.h"

namespace kiv::os {

const uint32_t kErrorNoMoreFiles = ENOENT;
const uint32_t kErrorPathTooLong = ENAMETOOLONG;
const char* const kEveryFile = "*";

namespace {

constexpr uint32_t kReadOnly = 0x001;
constexpr uint32_t kHidden = 0x002;
constexpr uint32_t kNormal = 0x080;
constexpr uint32_t kLink = 0x400;

constexpr uint64_t kIntervalsPerSecond = 10'000'000;
constexpr int64_t kSecondsFrom1601To1970 = 11'644'473'600;

void* const kNoSearch = reinterpret_cast<void*>(intptr_t{-1});

bool IsDots(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// A search in pages of its own. It allocates nothing from the heap, which hosts watch.
struct Search {
  DIR* folder;
  uint32_t dotsShown;  // of "." and "..", how many have been tried
  FilePattern pattern;
};

struct SearchContent {
  static constexpr Kind kKind = Kind::kSearch;

  Result End() {
    closedir(search->folder);
    munmap(search, sizeof *search);
    return {true, 0};
  }

  ObjectWord word;
  Search* search;
};

// ---- What an entry is ----

KivSdFileTime TimeOf(const struct statx_timestamp& time) {
  const int64_t seconds = time.tv_sec + kSecondsFrom1601To1970;
  if (seconds < 0) return {0, 0};
  const uint64_t intervals =
      static_cast<uint64_t>(seconds) * kIntervalsPerSecond + time.tv_nsec / 100;
  return {static_cast<uint32_t>(intervals), static_cast<uint32_t>(intervals >> 32)};
}

bool Ask(int folder, const char* name, int flags, struct statx* answer) {
  constexpr uint32_t kAsked = STATX_BASIC_STATS | STATX_BTIME;
  return syscall(SYS_statx, folder, name, flags, kAsked, answer) == 0;
}

uint32_t AttributesOf(const char* name, uint32_t mode, bool isLink) {
  uint32_t attributes = isLink ? kLink : 0;
  if (S_ISDIR(mode) && !isLink) attributes |= KIV_ATTRIBUTE_DIRECTORY;
  if (S_ISREG(mode) && (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) attributes |= kReadOnly;
  if (name[0] == '.' && !IsDots(name)) attributes |= kHidden;
  return attributes == 0 ? kNormal : attributes;
}

// Returns false if the entry is gone.
bool Describe(int folder, const char* name, KivSdFindData* found) {
  struct statx entry = {};
  if (!Ask(folder, name, AT_SYMLINK_NOFOLLOW, &entry)) return false;
  const bool isLink = S_ISLNK(entry.stx_mode);
  struct statx target;
  if (isLink && Ask(folder, name, 0, &target)) entry = target;
  *found = {};
  found->attributes = AttributesOf(name, entry.stx_mode, isLink);
  found->accessed = TimeOf(entry.stx_atime);
  found->written = TimeOf(entry.stx_mtime);
  const bool isBirthKnown = (entry.stx_mask & STATX_BTIME) != 0;
  found->created = isBirthKnown ? TimeOf(entry.stx_btime) : found->written;
  if (!S_ISDIR(entry.stx_mode)) {
    found->sizeHigh = static_cast<uint32_t>(entry.stx_size >> 32);
    found->sizeLow = static_cast<uint32_t>(entry.stx_size);
  }
  std::memcpy(found->name, name, std::strlen(name) + 1);
  return true;
}

// ---- Walking ----

static_assert(sizeof(dirent::d_name) <= sizeof(KivSdFindData::name));

// The next name, or null with errno; the errno of the end is 0.
const char* NextName(Search* search) {
  constexpr const char* kDots[] = {".", ".."};
  if (search->dotsShown < 2) return kDots[search->dotsShown++];
  while (true) {
    errno = 0;
    const dirent* entry = readdir(search->folder);
    if (entry == nullptr) return nullptr;
    if (!IsDots(entry->d_name)) return entry->d_name;
  }
}

Result FindNext(Search* search, KivSdFindData* found) {
  while (const char* name = NextName(search)) {
    if (search->pattern.Matches(name) && Describe(dirfd(search->folder), name, found)) {
      return {true, 0};
    }
  }
  return {false, errno == 0 ? kErrorNoMoreFiles : static_cast<uint32_t>(errno)};
}

// ---- Starting ----

// The folder of a pattern, with room for every path that the kernel takes.
struct FolderPath {
  char text[PATH_MAX];

  // Returns what follows the folder; null if the path is too long.
  const char* Take(const char* pattern) {
    const char* separator = std::strrchr(pattern, '/');
    const char* last = separator == nullptr ? pattern : separator + 1;
    const auto length = static_cast<size_t>(last - pattern);
    if (length >= sizeof text - 1) return nullptr;
    std::memcpy(text, pattern, length);
    text[length] = '\0';
    if (length == 0) std::strcpy(text, ".");
    return last;
  }
};

DIR* OpenFolder(const char* path) {
  const int descriptor = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor == -1) return nullptr;
  DIR* folder = fdopendir(descriptor);
  if (folder == nullptr) {
    const int error = errno;
    static_cast<void>(CloseOnce(descriptor));
    errno = error;
  }
  return folder;
}

ValueResult<Search*> MakeSearch(const char* pattern) {
  FolderPath path;
  const char* last = path.Take(pattern);
  if (last == nullptr) return {false, ENAMETOOLONG, nullptr};
  if (*last == '\0') return {false, ENOENT, nullptr};
  void* mapped =
      mmap(nullptr, sizeof(Search), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return {false, static_cast<uint32_t>(errno), nullptr};
  auto* search = new (mapped) Search{};
  uint32_t error = search->pattern.Set(last) ? 0 : uint32_t{ENAMETOOLONG};
  if (error == 0) {
    search->folder = OpenFolder(path.text);
    if (search->folder != nullptr) return {true, 0, search};
    error = static_cast<uint32_t>(errno);
  }
  munmap(mapped, sizeof(Search));
  return {false, error, nullptr};
}

}  // namespace

ValueResult<void*> StartFileSearch(const char* pattern, KivSdFindData* found) {
  if (pattern == nullptr) return {false, EFAULT, kNoSearch};
  const ValueResult<Search*> made = MakeSearch(pattern);
  if (!made.ok) return {false, made.error, kNoSearch};
  SearchContent content = {{}, made.value};
  Result first = FindNext(made.value, found);
  Slot* slot = first.ok ? TakeSlot() : nullptr;
  if (slot == nullptr) {
    static_cast<void>(content.End());
    return {false, first.ok ? uint32_t{ENOMEM} : first.error, kNoSearch};
  }
  ContentOf<SearchContent>(slot)->search = made.value;
  return {true, 0, PublishContent<SearchContent>(slot)};
}

Result ContinueFileSearch(void* search, KivSdFindData* found) {
  const SlotUse<SearchContent> use(search);
  return use ? FindNext(use->search, found) : Result{false, EBADF};
}

Result EndFileSearch(void* search) { return CloseSlot<SearchContent>(search); }

}  // namespace kiv::os
