// Linux: each named object and each pipe is a file in the library's private folder of the user. The
// library's own binding says what a file is and whether its object is alive.
#include "ls/listing.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "failure.h"
#include "lnx/owners.h"
#include "os/lnx/name_folder.h"
#include "os/lnx/names.h"
#include "os/lnx/pipe_names.h"

namespace kivsd {
namespace {

namespace os = kiv::os;

constexpr char kCutMark = '~';  // a longer name is cut here, and a hash follows
constexpr char kSocketMark = ':';
constexpr uint32_t kCountMask = 0xFFFFFFFF;
constexpr os::NamedKind kKinds[] = {os::NamedKind::kSemaphore, os::NamedKind::kMutex,
                                    os::NamedKind::kBlock};

std::string FolderPath() {
  char path[PATH_MAX];
  if (!os::NameFolderPath(path, sizeof path).ok) throw Failure("the folder of names has no path");
  return path;
}

// The name that a file stands for: %XX is a byte.
std::string NameOf(const std::string& file) {
  std::string name;
  for (size_t i = 2; i < file.size(); ++i) {
    if (file[i] == '%' && i + 2 < file.size()) {
      name += static_cast<char>(std::strtoul(file.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      name += file[i];
    }
  }
  return name;
}

std::optional<ListedObject> Described(const os::NamedObject& object, const std::string& name) {
  if (object.kind == os::NamedKind::kBlock) {
    return ListedObject{ObjectKind::kBlock, name, object.blockBytes, {}};
  }
  if (object.kind == os::NamedKind::kMutex) return ListedObject{ObjectKind::kMutex, name};
  const uint64_t word = object.semaphore->load(std::memory_order_relaxed);  // only shown
  return ListedObject{ObjectKind::kSemaphore, name, 0, static_cast<int64_t>(word & kCountMask)};
}

// Opens the object for a moment. Nothing if nobody has it: the file is a leftover.
std::optional<ListedObject> FindObject(const std::string& file) {
  const std::string name = NameOf(file);
  if (name.find(kCutMark) != std::string::npos) return ListedObject{ObjectKind::kUnknown, name};
  for (const os::NamedKind kind : kKinds) {
    const os::ValueResult<os::NamedObject*> opened = os::OpenNamed(name.c_str(), kind);
    if (!opened.ok) continue;
    std::optional<ListedObject> described = Described(*opened.value, name);
    os::ReleaseNamed(opened.value);
    return described;
  }
  return std::nullopt;
}

std::optional<ListedObject> FindPipe(const std::string& file) {
  if (file.find(kSocketMark) != std::string::npos || file.size() >= os::kNameFileBytes) {
    return std::nullopt;
  }
  os::NameFile name = {};
  std::memcpy(name.text, file.data(), file.size());
  const os::PipeFolder folder;
  const os::ValueResult<os::ExistingPipe> found = os::FindPipe(folder, name);
  if (!found.ok) return std::nullopt;
  const bool isAlive = os::NextInstance(found.value.file, 0) != 0;
  close(found.value.file);
  if (!isAlive) return std::nullopt;
  return ListedObject{ObjectKind::kPipe, NameOf(file)};
}

std::optional<ListedObject> Find(const std::string& file) {
  if (file.size() < 2 || file[1] != '-') return std::nullopt;
  if (file[0] == os::kObjectFile) return FindObject(file);
  return file[0] == os::kPipeFile ? FindPipe(file) : std::nullopt;
}

// The names first: looking for an object removes leftovers from the folder.
std::vector<std::string> FilesIn(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    files.push_back(entry.path().filename().string());
  }
  std::ranges::sort(files);
  return files;
}

}  // namespace

Listing ListObjects() {
  Listing listing;
  const std::string folder = FolderPath();
  const auto owners = OwnersIn(folder);
  for (const std::string& file : FilesIn(folder)) {
    std::optional<ListedObject> object = Find(file);
    if (!object) continue;
    const auto found = owners.find(file);
    if (found != owners.end()) object->owners = found->second;
    listing.objects.push_back(*object);
  }
  JoinSegments(&listing.objects);
  listing.note = "Objects of this user, in " + folder + ".";
  return listing;
}

}  // namespace kivsd
