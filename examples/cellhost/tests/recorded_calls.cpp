// The calls by which the server changes files, redirected by the linker's --wrap: each is carried
// out and, if it succeeds during a recording, recorded.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "recorded_disk.h"

// KIV_RECORDED_CALL(name, "symbol", parameters): declares Real<name>, the call itself, and
// Wrap<name>, what the linker puts in its place.
#define KIV_RECORDED_CALL(name, symbol, ...)              \
  uint32_t Real##name(__VA_ARGS__) asm("__real_" symbol); \
  uint32_t Wrap##name(__VA_ARGS__) asm("__wrap_" symbol);

namespace cellhost::test {
namespace {

class Recorder {
 public:
  explicit Recorder(const std::string& folder) : root_(folder) { numbers_[""] = 0; }

  // Notes a new name. Does nothing for a name that exists. Returns the file's number, or kNoFile
  // for a path outside the recorded folder.
  uint32_t Make(const std::string& fullPath, bool isFolder) {
    std::string path;
    if (!Find(fullPath, &path)) return kNoFile;
    const auto found = numbers_.find(path);
    if (found != numbers_.end()) return found->second;
    numbers_[path] = next_;
    Note({.kind = DiskStep::kName,
          .file = FolderOf(path),
          .data = LastPart(path),
          .named = next_,
          .isFolder = isFolder});
    return next_++;
  }

  void Rename(const std::string& fullPath, const std::string& newFullPath) {
    std::string path;
    std::string newPath;
    if (!Find(fullPath, &path) || !Find(newFullPath, &newPath)) return;
    EXPECT_EQ(FolderOf(path), FolderOf(newPath));
    Note({.kind = DiskStep::kRename,
          .file = FolderOf(path),
          .data = LastPart(path),
          .newName = LastPart(newPath),
          .named = numbers_.at(path)});
    Note({.kind = DiskStep::kFlushFolder, .file = FolderOf(newPath)});
    Move(path, newPath);
  }

  // A folder's names are removed before the folder's own.
  void RemoveFolder(const std::string& fullPath) {
    std::string path;
    if (!Find(fullPath, &path)) return;
    for (auto at = numbers_.rbegin(); at != numbers_.rend(); ++at) {
      if (IsIn(at->first, path)) NoteRemoved(at->first);
    }
    std::erase_if(numbers_, [&](const auto& entry) { return IsIn(entry.first, path); });
  }

  void RemoveFile(const std::string& fullPath) {
    std::string path;
    if (!Find(fullPath, &path)) return;
    NoteRemoved(path);
    numbers_.erase(path);
  }

  void FlushName(const std::string& fullPath) {
    std::string path;
    if (Find(fullPath, &path)) Note({.kind = DiskStep::kFlushFolder, .file = FolderOf(path)});
  }

  void Open(std::map<uint32_t, uint32_t>* files, uint32_t opened, uint32_t number) {
    if (number != kNoFile) (*files)[opened] = number;
  }

  void Write(const std::map<uint32_t, uint32_t>& files, uint32_t file, uint64_t offset,
             const void* bytes, size_t count) {
    const auto found = files.find(file);
    if (found == files.end()) return;
    Note({.kind = DiskStep::kWrite,
          .file = found->second,
          .offset = offset,
          .data = std::string(static_cast<const char*>(bytes), count)});
  }

  void Resize(const std::map<uint32_t, uint32_t>& files, uint32_t file, uint64_t size) {
    const auto found = files.find(file);
    if (found == files.end()) return;
    Note({.kind = DiskStep::kResize, .file = found->second, .offset = size});
  }

  void FlushFile(uint32_t file) {
    const auto found = streams.find(file);
    if (found != streams.end()) Note({.kind = DiskStep::kFlushFile, .file = found->second});
  }

  const std::vector<DiskStep>& steps() const { return steps_; }

  std::map<uint32_t, uint32_t> streams;      // file numbers by descriptor
  std::map<uint32_t, uint32_t> directFiles;  // and by handle

 private:
  void Note(const DiskStep& step) { steps_.push_back(step); }

  void NoteRemoved(const std::string& path) {
    Note({.kind = DiskStep::kRemove, .file = FolderOf(path), .data = LastPart(path)});
  }

  // The path below the recorded folder.
  bool Find(const std::string& fullPath, std::string* path) const {
    if (!fullPath.starts_with(root_)) return false;
    *path = fullPath.substr(root_.size());
    if (path->starts_with("/")) path->erase(0, 1);
    return true;
  }

  static bool IsIn(const std::string& path, const std::string& folder) {
    return path == folder || path.starts_with(folder + "/");
  }

  uint32_t FolderOf(const std::string& path) const {
    const size_t slash = path.rfind('/');
    return numbers_.at(slash == path.npos ? "" : path.substr(0, slash));
  }

  static std::string LastPart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
  }

  void Move(const std::string& path, const std::string& newPath) {
    std::map<std::string, uint32_t> moved;
    for (const auto& [each, number] : numbers_) {
      moved[IsIn(each, path) ? newPath + each.substr(path.size()) : each] = number;
    }
    if (numbers_.contains(newPath)) moved[newPath] = numbers_.at(path);
    numbers_ = moved;
  }

  const std::string root_;
  std::map<std::string, uint32_t> numbers_;
  uint32_t next_ = 1;
  std::vector<DiskStep> steps_;
};

Recorder* recorder = nullptr;

constexpr uint32_t kCreatesDirect[] = {KIV_DISPOSITION_CREATE_NEW, KIV_DISPOSITION_CREATE_ALWAYS};

}  // namespace

Recording::Recording(const std::string& folder) { recorder = new Recorder(folder); }

Recording::~Recording() {
  delete recorder;
  recorder = nullptr;
}

const std::vector<DiskStep>& Recording::steps() const { return recorder->steps(); }

// ---- Names ----

KIV_RECORDED_CALL(DirCreate, "KivSdDirCreate", KivSdContext* ctx, const char* path)
uint32_t WrapDirCreate(KivSdContext* ctx, const char* path) {
  const uint32_t status = RealDirCreate(ctx, path);
  if (status == 0 && recorder != nullptr) recorder->Make(path, true);
  return status;
}

KIV_RECORDED_CALL(DirCreateEx, "KivSdDirCreateEx", KivSdContext* ctx, const char* path)
uint32_t WrapDirCreateEx(KivSdContext* ctx, const char* path) {
  const uint32_t status = RealDirCreateEx(ctx, path);
  if (status == 0 && recorder != nullptr) recorder->Make(path, true);
  return status;
}

KIV_RECORDED_CALL(DirRemove, "KivSdDirRemove", KivSdContext* ctx, const char* path)
uint32_t WrapDirRemove(KivSdContext* ctx, const char* path) {
  const uint32_t status = RealDirRemove(ctx, path);
  if (status == 0 && recorder != nullptr) recorder->RemoveFolder(path);
  return status;
}

KIV_RECORDED_CALL(Rename, "_ZN8cellhost6RenameEPKcS1_b", const char* path, const char* newPath,
                  bool replace)
uint32_t WrapRename(const char* path, const char* newPath, bool replace) {
  const uint32_t error = RealRename(path, newPath, replace);
  if (error == 0 && recorder != nullptr) recorder->Rename(path, newPath);
  return error;
}

KIV_RECORDED_CALL(FlushName, "_ZN8cellhost9FlushNameEPKc", const char* path)
uint32_t WrapFlushName(const char* path) {
  if (recorder != nullptr) recorder->FlushName(path);
  return 0;
}

KIV_RECORDED_CALL(FileRemove, "KivSdFileRemove", KivSdContext* ctx, const char* path)
uint32_t WrapFileRemove(KivSdContext* ctx, const char* path) {
  const uint32_t status = RealFileRemove(ctx, path);
  if (status == 0 && recorder != nullptr) recorder->RemoveFile(path);
  return status;
}

// ---- Streams ----

// Notes an opened stream.
void Opened(uint32_t status, const char* path, uint32_t openFlags, uint32_t file) {
  if (status != 0 || recorder == nullptr) return;
  recorder->Open(&recorder->streams, file, recorder->Make(path, false));
  if ((openFlags & KIV_FILEO_TRUNCATE) != 0) recorder->Resize(recorder->streams, file, 0);
}

KIV_RECORDED_CALL(FileOpen, "KivSdFileOpen", KivSdContext* ctx, const char* path, uint32_t flags,
                  uint32_t permissions, uint32_t* file)
uint32_t WrapFileOpen(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t permissions,
                      uint32_t* file) {
  const uint32_t status = RealFileOpen(ctx, path, flags, permissions, file);
  Opened(status, path, flags, *file);
  return status;
}

KIV_RECORDED_CALL(FileSOpen, "KivSdFileSOpen", KivSdContext* ctx, const char* path, uint32_t flags,
                  uint32_t share, uint32_t permissions, uint32_t* file)
uint32_t WrapFileSOpen(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t share,
                       uint32_t permissions, uint32_t* file) {
  const uint32_t status = RealFileSOpen(ctx, path, flags, share, permissions, file);
  Opened(status, path, flags, *file);
  return status;
}

KIV_RECORDED_CALL(FileClose, "KivSdFileClose", KivSdContext* ctx, uint32_t file)
uint32_t WrapFileClose(KivSdContext* ctx, uint32_t file) {
  if (recorder != nullptr) recorder->streams.erase(file);
  return RealFileClose(ctx, file);
}

KIV_RECORDED_CALL(FileWrite, "KivSdFileWrite", KivSdContext* ctx, uint32_t file, const void* bytes,
                  uint32_t length, uint32_t* count)
uint32_t WrapFileWrite(KivSdContext* ctx, uint32_t file, const void* bytes, uint32_t length,
                       uint32_t* count) {
  uint32_t offset = 0;
  EXPECT_EQ(KivSdFileTell(nullptr, file, &offset), 0u);
  const uint32_t status = RealFileWrite(ctx, file, bytes, length, count);
  if (status == 0 && recorder != nullptr) {
    recorder->Write(recorder->streams, file, offset, bytes, *count);
  }
  return status;
}

KIV_RECORDED_CALL(FilePWrite, "KivSdFilePWrite", KivSdContext* ctx, uint32_t file,
                  const void* bytes, uint32_t offset, uint32_t length, uint32_t* count,
                  uint32_t* osError)
uint32_t WrapFilePWrite(KivSdContext* ctx, uint32_t file, const void* bytes, uint32_t offset,
                        uint32_t length, uint32_t* count, uint32_t* osError) {
  const uint32_t status = RealFilePWrite(ctx, file, bytes, offset, length, count, osError);
  if (status == 0 && recorder != nullptr) {
    recorder->Write(recorder->streams, file, offset, bytes, *count);
  }
  return status;
}

KIV_RECORDED_CALL(FileFlush, "KivSdFileFlush", KivSdContext* ctx, uint32_t file)
uint32_t WrapFileFlush(KivSdContext* /*ctx*/, uint32_t file) {
  if (recorder != nullptr) recorder->FlushFile(file);
  return KIV_ST_OK;
}

KIV_RECORDED_CALL(FileSetEnd, "KivSdFileSetEndOfFile", KivSdContext* ctx, uint64_t file,
                  uint64_t length, uint32_t* newLength, uint32_t* osError)
uint32_t WrapFileSetEnd(KivSdContext* ctx, uint64_t file, uint64_t length, uint32_t* newLength,
                        uint32_t* osError) {
  const uint32_t status = RealFileSetEnd(ctx, file, length, newLength, osError);
  if (status == 0 && recorder != nullptr) {
    recorder->Resize(recorder->streams, static_cast<uint32_t>(file), length);
  }
  return status;
}

// ---- Direct files ----

KIV_RECORDED_CALL(DirectOpen, "KivSdDirectIOFileOpen", KivSdContext* ctx, const char* path,
                  uint32_t access, uint32_t share, uint32_t disposition, const void* ignored,
                  uint32_t flags, uint32_t* file)
uint32_t WrapDirectOpen(KivSdContext* ctx, const char* path, uint32_t access, uint32_t share,
                        uint32_t disposition, const void* ignored, uint32_t flags, uint32_t* file) {
  const uint32_t status =
      RealDirectOpen(ctx, path, access, share, disposition, ignored, flags, file);
  if (status != 0 || recorder == nullptr) return status;
  recorder->Open(&recorder->directFiles, *file, recorder->Make(path, false));
  for (const uint32_t creates : kCreatesDirect) {
    if (disposition == creates) recorder->Resize(recorder->directFiles, *file, 0);
  }
  return status;
}

KIV_RECORDED_CALL(DirectClose, "KivSdDirectIOFileClose", KivSdContext* ctx, uint32_t file)
uint32_t WrapDirectClose(KivSdContext* ctx, uint32_t file) {
  if (recorder != nullptr) recorder->directFiles.erase(file);
  return RealDirectClose(ctx, file);
}

KIV_RECORDED_CALL(DirectWrite, "KivSdDirectIOFileWrite", KivSdContext* ctx, uint32_t file,
                  uint32_t firstBlock, const void* buffer, uint32_t blockCount,
                  KivSdNoWaitCb* record, uint32_t* blocksWritten)
uint32_t WrapDirectWrite(KivSdContext* ctx, uint32_t file, uint32_t firstBlock, const void* buffer,
                         uint32_t blockCount, KivSdNoWaitCb* record, uint32_t* blocksWritten) {
  const uint32_t status =
      RealDirectWrite(ctx, file, firstBlock, buffer, blockCount, record, blocksWritten);
  const bool isStarted = status == KIV_ST_OK || status == KIV_ST_DIRECT_WRITE_PENDING;
  if (isStarted && recorder != nullptr) {
    recorder->Write(recorder->directFiles, file, uint64_t{firstBlock} * KIV_PAGE_UNIT, buffer,
                    size_t{blockCount} * KIV_PAGE_UNIT);
  }
  return status;
}

KIV_RECORDED_CALL(DirectSetEnd, "KivSdDirectIOFileSetEndOfFile", KivSdContext* ctx, uint32_t file,
                  uint32_t blocks, uint32_t* newSize)
uint32_t WrapDirectSetEnd(KivSdContext* ctx, uint32_t file, uint32_t blocks, uint32_t* newSize) {
  const uint32_t status = RealDirectSetEnd(ctx, file, blocks, newSize);
  if (status == 0 && recorder != nullptr) {
    recorder->Resize(recorder->directFiles, file, uint64_t{blocks} * KIV_PAGE_UNIT);
  }
  return status;
}

}  // namespace cellhost::test
