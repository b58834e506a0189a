// A record that processes share by name. It is zero when the first process creates it.
#ifndef KIV_TESTS_SHARED_RECORD_H
#define KIV_TESTS_SHARED_RECORD_H

#include <gtest/gtest.h>

#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace kiv::test {

// Memory that processes share by name.
#ifdef _WIN32

class SharedBytes {
 public:
  SharedBytes(const std::string& name, size_t sizeBytes)
      : mapping_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                    static_cast<DWORD>(sizeBytes), name.c_str())),
        bytes_(MapViewOfFile(mapping_, FILE_MAP_ALL_ACCESS, 0, 0, sizeBytes)) {}
  ~SharedBytes() {
    UnmapViewOfFile(bytes_);
    CloseHandle(mapping_);
  }
  SharedBytes(const SharedBytes&) = delete;
  SharedBytes& operator=(const SharedBytes&) = delete;

  void* data() const { return bytes_; }

 private:
  HANDLE mapping_;
  void* bytes_;
};

#else

// The process that created the name removes it: it outlives the others.
class SharedBytes {
 public:
  SharedBytes(const std::string& name, size_t sizeBytes)
      : name_("/kivsdu-test-" + name), sizeBytes_(sizeBytes) {
    int file = shm_open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    isOwner_ = file != -1;
    if (isOwner_) {
      EXPECT_EQ(ftruncate(file, static_cast<off_t>(sizeBytes)), 0);
    } else {
      file = shm_open(name_.c_str(), O_RDWR | O_CLOEXEC, 0600);
    }
    void* mapped = mmap(nullptr, sizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    bytes_ = mapped == MAP_FAILED ? nullptr : mapped;
    close(file);
  }
  ~SharedBytes() {
    if (bytes_ != nullptr) munmap(bytes_, sizeBytes_);
    if (isOwner_) shm_unlink(name_.c_str());
  }
  SharedBytes(const SharedBytes&) = delete;
  SharedBytes& operator=(const SharedBytes&) = delete;

  void* data() const { return bytes_; }

 private:
  std::string name_;
  size_t sizeBytes_;
  bool isOwner_ = false;
  void* bytes_ = nullptr;
};

#endif

template <typename Record>
class SharedRecord {
 public:
  explicit SharedRecord(const std::string& name) : bytes_(name, sizeof(Record)) {
    EXPECT_NE(bytes_.data(), nullptr);
  }

  Record* operator->() const { return static_cast<Record*>(bytes_.data()); }

 private:
  SharedBytes bytes_;
};

}  // namespace kiv::test

#endif
