// The platform's calls that the library's operations are compared with. Windows: the calls that the
// operations make themselves.
#ifndef KIV_BENCH_W32_RAW_H
#define KIV_BENCH_W32_RAW_H

#include <io.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kiv::bench::raw {

// One instruction of the processor clears the block.
inline void Clear(void* block, size_t sizeBytes) {
  __asm__ volatile("rep stosb" : "+D"(block), "+c"(sizeBytes) : "a"(0) : "memory");
}

class Semaphore {
 public:
  ~Semaphore() { CloseHandle(handle_); }
  void Give() { ReleaseSemaphore(handle_, 1, nullptr); }
  uint32_t Take() { return WaitForSingleObject(handle_, INFINITE); }

 private:
  HANDLE handle_ = CreateSemaphoreA(nullptr, 0, 10, nullptr);
};

class Mutex {
 public:
  ~Mutex() { CloseHandle(handle_); }
  uint32_t Take() { return WaitForSingleObject(handle_, INFINITE); }
  void Give() { ReleaseMutex(handle_); }

 private:
  HANDLE handle_ = CreateMutexA(nullptr, FALSE, nullptr);
};

class Event {
 public:
  ~Event() { CloseHandle(handle_); }
  void Signal() { SetEvent(handle_); }
  uint32_t Wait() { return WaitForSingleObject(handle_, INFINITE); }

 private:
  HANDLE handle_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
};

class CriticalSection {
 public:
  CriticalSection() { InitializeCriticalSection(&section_); }
  ~CriticalSection() { DeleteCriticalSection(&section_); }
  void Enter() { EnterCriticalSection(&section_); }
  void Leave() { LeaveCriticalSection(&section_); }

 private:
  CRITICAL_SECTION section_;
};

class Pipe {
 public:
  Pipe() { CreatePipe(&read_, &write_, nullptr, 4096); }
  ~Pipe() {
    CloseHandle(read_);
    CloseHandle(write_);
  }
  void Write(const void* data, uint32_t length) {
    DWORD count = 0;
    WriteFile(write_, data, length, &count, nullptr);
  }
  void Read(void* data, uint32_t length) {
    DWORD count = 0;
    ReadFile(read_, data, length, &count, nullptr);
  }

 private:
  HANDLE read_ = nullptr;
  HANDLE write_ = nullptr;
};

class ThreadSlot {
 public:
  ~ThreadSlot() { TlsFree(slot_); }
  void* Read() const { return TlsGetValue(slot_); }

 private:
  DWORD slot_ = TlsAlloc();
};

inline uint32_t ThreadId() { return GetCurrentThreadId(); }
inline void YieldThread() { Sleep(0); }
inline uint64_t TickCount() { return GetTickCount(); }

inline int64_t Counter() {
  LARGE_INTEGER count;
  QueryPerformanceCounter(&count);
  return count.QuadPart;
}

// The loaded library.
inline void* Library() { return GetModuleHandleA("kivsdu.dll"); }
inline void* FindEntry(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

// ---- Files by descriptor ----

inline std::string TemporaryName() {
  char* made = _tempnam(nullptr, "kb");
  const std::string name = made;
  std::free(made);
  return name;
}

inline void RemoveFile(const std::string& name) { _unlink(name.c_str()); }
inline int64_t Seek(int file, int32_t offset) { return _lseek(file, offset, SEEK_SET); }
inline int64_t ReadFile(int file, void* data, uint32_t length) { return _read(file, data, length); }
inline int64_t WriteFile(int file, const void* data, uint32_t length) {
  return _write(file, data, length);
}

inline OVERLAPPED At(uint32_t offset) {
  OVERLAPPED position = {};
  position.Offset = offset;
  return position;
}
inline int64_t ReadFileAt(int file, uint32_t offset, void* data, uint32_t length) {
  OVERLAPPED position = At(offset);
  DWORD count = 0;
  return ::ReadFile(reinterpret_cast<HANDLE>(_get_osfhandle(file)), data, length, &count,
                    &position);
}
inline int64_t WriteFileAt(int file, uint32_t offset, const void* data, uint32_t length) {
  OVERLAPPED position = At(offset);
  DWORD count = 0;
  return ::WriteFile(reinterpret_cast<HANDLE>(_get_osfhandle(file)), data, length, &count,
                     &position);
}

// ---- Unbuffered files ----

// Opens a file that exists and that others share. Up to kMaxUnderWay reads run at the same time if
// `async`.
class DirectFile {
 public:
  static constexpr uint32_t kMaxUnderWay = 32;

  DirectFile(const std::string& path, bool async)
      : file_(CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                          OPEN_EXISTING,
                          FILE_FLAG_NO_BUFFERING | (async ? FILE_FLAG_OVERLAPPED : 0), nullptr)) {
    for (OVERLAPPED& record : records_) record.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  }
  ~DirectFile() {
    for (const OVERLAPPED& record : records_) CloseHandle(record.hEvent);
    CloseHandle(file_);
  }
  DirectFile(const DirectFile&) = delete;
  DirectFile& operator=(const DirectFile&) = delete;

  int64_t Read(uint32_t offset, void* data, uint32_t length) {
    DWORD count = 0;
    SetFilePointer(file_, static_cast<LONG>(offset), nullptr, FILE_BEGIN);
    return ::ReadFile(file_, data, length, &count, nullptr);
  }
  int64_t Write(uint32_t offset, const void* data, uint32_t length) {
    OVERLAPPED record = At(offset);
    DWORD count = 0;
    return ::WriteFile(file_, data, length, &count, &record);
  }

  void StartRead(uint32_t number, uint32_t offset, void* data, uint32_t length) {
    records_[number].Offset = offset;
    DWORD count = 0;
    ::ReadFile(file_, data, length, &count, &records_[number]);
  }
  void Collect(uint32_t number) {
    DWORD count = 0;
    WaitForSingleObject(records_[number].hEvent, INFINITE);
    GetOverlappedResult(file_, &records_[number], &count, FALSE);
    ResetEvent(records_[number].hEvent);
  }

 private:
  HANDLE file_;
  OVERLAPPED records_[kMaxUnderWay] = {};
};

}  // namespace kiv::bench::raw

#endif
