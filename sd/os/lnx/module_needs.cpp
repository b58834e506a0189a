#include "os/lnx/module_needs.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <link.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kiv::os {
namespace {

constexpr size_t kNameBytes = 256;
constexpr int kMostSegments = 64;

// A module's file. Nothing in it is trusted: every offset is read with a bound.
class ModuleFile {
 public:
  explicit ModuleFile(const char* path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC)) {}
  ~ModuleFile() {
    if (descriptor_ != -1) close(descriptor_);
  }
  ModuleFile(const ModuleFile&) = delete;
  ModuleFile& operator=(const ModuleFile&) = delete;

  template <typename Record>
  bool Read(uint64_t offset, Record* record) const {
    return offset <= INT64_MAX && pread(descriptor_, record, sizeof *record,
                                        static_cast<off_t>(offset)) == ssize_t{sizeof *record};
  }

  // Reads a text, cut to the buffer and terminated.
  bool ReadText(uint64_t offset, char* text, size_t sizeBytes) const {
    if (offset > INT64_MAX) return false;
    const ssize_t count = pread(descriptor_, text, sizeBytes - 1, static_cast<off_t>(offset));
    if (count <= 0) return false;
    text[count] = '\0';
    return true;
  }

 private:
  int descriptor_;
};

// The segments that say where the list of needs is.
struct Segments {
  ElfW(Phdr) dynamic;
  ElfW(Phdr) loads[kMostSegments];
  int loadCount;
};

bool ReadSegments(const ModuleFile& file, Segments* segments) {
  ElfW(Ehdr) header;
  if (!file.Read(0, &header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return false;
  if (header.e_phentsize != sizeof(ElfW(Phdr))) return false;
  bool isDynamic = false;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    ElfW(Phdr) segment;
    if (!file.Read(header.e_phoff + i * sizeof segment, &segment)) return false;
    if (segment.p_type == PT_DYNAMIC) {
      segments->dynamic = segment;
      isDynamic = true;
    } else if (segment.p_type == PT_LOAD && segments->loadCount < kMostSegments) {
      segments->loads[segments->loadCount++] = segment;
    }
  }
  return isDynamic;
}

// Where the file holds what is loaded at an address; UINT64_MAX if nowhere.
uint64_t OffsetOf(const Segments& segments, uint64_t address) {
  for (int i = 0; i < segments.loadCount; ++i) {
    const ElfW(Phdr)& load = segments.loads[i];
    if (address >= load.p_vaddr && address - load.p_vaddr < load.p_filesz) {
      return load.p_offset + (address - load.p_vaddr);
    }
  }
  return UINT64_MAX;
}

// Calls `visit` for each entry of the dynamic segment, up to its end.
template <typename Visit>
void ForEachEntry(const ModuleFile& file, const Segments& segments, Visit visit) {
  const uint64_t count = segments.dynamic.p_filesz / sizeof(ElfW(Dyn));
  for (uint64_t i = 0; i < count; ++i) {
    ElfW(Dyn) entry;
    if (!file.Read(segments.dynamic.p_offset + i * sizeof entry, &entry)) return;
    if (entry.d_tag == DT_NULL) return;
    visit(static_cast<const ElfW(Dyn)&>(entry));
  }
}

}  // namespace

FolderNeeds::FolderNeeds(const char* path) {
  if (std::strchr(path, '/') != nullptr) LoadNeedsOf(path, 0);
}

FolderNeeds::~FolderNeeds() {
  while (count_ != 0) dlclose(loaded_[--count_]);
}

void FolderNeeds::LoadNeedsOf(const char* path, int depth) {
  const ModuleFile file(path);
  Segments segments = {};
  if (depth == kDeepest || !ReadSegments(file, &segments)) return;
  uint64_t texts = UINT64_MAX;
  ForEachEntry(file, segments, [&](const ElfW(Dyn) & entry) {
    if (entry.d_tag == DT_STRTAB) texts = OffsetOf(segments, entry.d_un.d_ptr);
  });
  if (texts == UINT64_MAX) return;
  ForEachEntry(file, segments, [&](const ElfW(Dyn) & entry) {
    char name[kNameBytes];
    if (entry.d_tag != DT_NEEDED) return;
    if (file.ReadText(texts + entry.d_un.d_val, name, sizeof name)) LoadNeed(path, name, depth);
  });
}

// `path` is that of the module that needs the other one. A module of the name that is loaded already
// would be used in any case.
void FolderNeeds::LoadNeed(const char* path, const char* name, int depth) {
  if (count_ == kMost || std::strchr(name, '/') != nullptr) return;
  void* already = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
  if (already != nullptr) {
    loaded_[count_++] = already;
    return;
  }
  const auto folderLength = static_cast<int>(std::strrchr(path, '/') + 1 - path);
  char beside[PATH_MAX];
  const int length = std::snprintf(beside, sizeof beside, "%.*s%s", folderLength, path, name);
  if (length >= PATH_MAX || access(beside, R_OK) != 0) return;
  LoadNeedsOf(beside, depth + 1);
  void* loaded = dlopen(beside, RTLD_NOW | RTLD_LOCAL);
  if (loaded != nullptr && count_ < kMost) {
    loaded_[count_++] = loaded;
  } else if (loaded != nullptr) {
    dlclose(loaded);
  }
}

}  // namespace kiv::os
