#include "recorded_disk.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace cellhost::test {
namespace {

constexpr size_t kSectorBytes = 512;

bool Happens(Reached reached, std::mt19937* random) {
  if (reached != Reached::kSome) return reached == Reached::kEverything;
  return ((*random)() & 1) != 0;
}

// A file that is extended reads as zeros.
void Resize(std::string* bytes, uint64_t size) { bytes->resize(size, '\0'); }

// How many of the first `count` steps reach the disk.
size_t CountReached(size_t count, Reached reached, std::mt19937* random) {
  if (reached == Reached::kSome) return (*random)() % (count + 1);
  return reached == Reached::kEverything ? count : 0;
}

// Writes the sectors of a write that reach the disk.
void WriteSectors(const DiskStep& step, Reached reached, std::mt19937* random, std::string* bytes) {
  const size_t end = step.offset + step.data.size();
  if (bytes->size() < end) Resize(bytes, end);
  for (size_t at = step.offset; at < end;) {
    const size_t next = std::min(end, (at / kSectorBytes + 1) * kSectorBytes);
    if (Happens(reached, random)) {
      std::memcpy(bytes->data() + at, step.data.data() + (at - step.offset), next - at);
    }
    at = next;
  }
}

uint64_t SizeAfter(const DiskStep& step, uint64_t size) {
  if (step.kind == DiskStep::kResize) return step.offset;
  return std::max<uint64_t>(size, step.offset + step.data.size());
}

}  // namespace

void DiskImage::WriteTo(const std::string& folder) const {
  for (const std::string& path : folders) std::filesystem::create_directories(folder + "/" + path);
  for (const auto& [path, bytes] : files) {
    std::ofstream(folder + "/" + path, std::ios::binary) << bytes;
  }
}

Disk::Disk() { folders_[0]; }

void Disk::ApplyName(const DiskStep& step, std::map<std::string, uint32_t>* entries) {
  if (step.kind != DiskStep::kName) entries->erase(step.data);
  if (step.kind == DiskStep::kName) (*entries)[step.data] = step.named;
  if (step.kind == DiskStep::kRename) (*entries)[step.newName] = step.named;
}

void Disk::ApplyBytes(const DiskStep& step, std::string* bytes) {
  Resize(bytes, SizeAfter(step, bytes->size()));
  if (step.kind == DiskStep::kWrite) {
    std::memcpy(bytes->data() + step.offset, step.data.data(), step.data.size());
  }
}

void Disk::Take(const DiskStep& step) {
  switch (step.kind) {
    case DiskStep::kWrite:
    case DiskStep::kResize:
      files_[step.file].pending.push_back(step);
      return;
    case DiskStep::kFlushFile: {
      Content& content = files_[step.file];
      for (const DiskStep& each : content.pending) ApplyBytes(each, &content.bytes);
      content.pending.clear();
      return;
    }
    case DiskStep::kFlushFolder: {
      Names& names = folders_[step.file];
      for (const DiskStep& each : names.pending) ApplyName(each, &names.entries);
      names.pending.clear();
      return;
    }
    default:
      if (step.isFolder) folders_[step.named];
      folders_[step.file].pending.push_back(step);
  }
}

// Of one name's steps none happens before an earlier one: what is lost, and what depends on it, is
// decided by name.
std::map<std::string, uint32_t> Disk::EntriesOf(const Names& names, Reached reached,
                                                std::mt19937* random) const {
  std::map<std::string, uint32_t> entries = names.entries;
  std::map<std::string, bool> isLost;
  for (const DiskStep& step : names.pending) {
    const bool isLate = isLost[step.data] || isLost[step.newName];
    if (!isLate && Happens(reached, random)) {
      ApplyName(step, &entries);
      continue;
    }
    isLost[step.data] = true;
    if (step.kind == DiskStep::kRename) isLost[step.newName] = true;
  }
  return entries;
}

// Sizes reach the disk in their order, and apart from the data.
std::string Disk::BytesOf(const Content& content, Reached reached, std::mt19937* random) const {
  std::string bytes = content.bytes;
  uint64_t size = bytes.size();
  size_t sizesLeft = CountReached(content.pending.size(), reached, random);
  for (const DiskStep& step : content.pending) {
    if (sizesLeft > 0) {
      --sizesLeft;
      size = SizeAfter(step, size);
      if (step.kind == DiskStep::kResize) Resize(&bytes, size);
    }
    if (step.kind == DiskStep::kWrite && Happens(reached, random)) {
      WriteSectors(step, reached, random, &bytes);
    }
  }
  Resize(&bytes, size);
  return bytes;
}

void Disk::AddFolder(uint32_t folder, const std::string& path, Reached reached,
                     std::mt19937* random, DiskImage* image) const {
  image->folders.push_back(path);
  for (const auto& [name, number] : EntriesOf(folders_.at(folder), reached, random)) {
    const std::string entry = path.empty() ? name : path + "/" + name;
    if (folders_.contains(number)) {
      AddFolder(number, entry, reached, random, image);
    } else {
      const auto found = files_.find(number);
      image->files[entry] =
          found == files_.end() ? std::string() : BytesOf(found->second, reached, random);
    }
  }
}

DiskImage Disk::Cut(Reached reached, std::mt19937* random) const {
  DiskImage image;
  AddFolder(0, "", reached, random, &image);
  return image;
}

}  // namespace cellhost::test
