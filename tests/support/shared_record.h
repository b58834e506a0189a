// A record that processes share by name. It is zero when the first process creates it.
#ifndef KIV_TESTS_SHARED_RECORD_H
#define KIV_TESTS_SHARED_RECORD_H

#include <gtest/gtest.h>
#include <windows.h>

#include <string>

namespace kiv::test {

template <typename Record>
class SharedRecord {
 public:
  explicit SharedRecord(const std::string& name)
      : mapping_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                    sizeof(Record), name.c_str())),
        record_(static_cast<Record*>(
            MapViewOfFile(mapping_, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Record)))) {
    EXPECT_NE(record_, nullptr);
  }
  ~SharedRecord() {
    UnmapViewOfFile(record_);
    CloseHandle(mapping_);
  }
  SharedRecord(const SharedRecord&) = delete;
  SharedRecord& operator=(const SharedRecord&) = delete;

  Record* operator->() const { return record_; }

 private:
  HANDLE mapping_;
  Record* record_;
};

}  // namespace kiv::test

#endif
