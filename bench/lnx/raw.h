// The platform's calls that the library's operations are compared with. Linux: kernel objects of a
// few lines each on bare futexes, and the C library's own calls.
#ifndef KIV_BENCH_LNX_RAW_H
#define KIV_BENCH_LNX_RAW_H

#include <dlfcn.h>
#include <fcntl.h>
#include <liburing.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kiv::bench::raw {

// One instruction of the processor clears the block.
inline void Clear(void* block, size_t sizeBytes) {
  __asm__ volatile("rep stosb" : "+D"(block), "+c"(sizeBytes) : "a"(0) : "memory");
}

// Until a process makes its second thread, the C library leaves out the locked instructions of its
// locks. A server has threads, so each benchmark makes one first.
[[maybe_unused]] inline const bool hasHadThreads = [] {
  pthread_t thread;
  if (pthread_create(
          &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr) != 0) {
    return false;
  }
  return pthread_join(thread, nullptr) == 0;
}();

// Sleeps while the word has the value, and wakes one sleeper. Shared between processes.
inline void FutexWait(std::atomic<uint32_t>* word, uint32_t value) {
  syscall(SYS_futex, word, FUTEX_WAIT, value, nullptr, nullptr, 0);
}
inline void FutexWake(std::atomic<uint32_t>* word) {
  syscall(SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

// A count and the number of sleepers. May lie in memory that processes share.
class alignas(64) Semaphore {
 public:
  void Give() {
    count_.fetch_add(1);
    if (sleepers_.load() != 0) FutexWake(&count_);
  }
  uint32_t Take() {
    uint32_t count = count_.load(std::memory_order_relaxed);
    for (;;) {
      if (count == 0) {
        sleepers_.fetch_add(1);
        FutexWait(&count_, 0);
        sleepers_.fetch_sub(1);
        count = count_.load(std::memory_order_relaxed);
      } else if (count_.compare_exchange_weak(count, count - 1)) {
        return 0;
      }
    }
  }

 private:
  std::atomic<uint32_t> count_{0};
  std::atomic<uint32_t> sleepers_{0};
};

// An event that lets one waiter through is a semaphore whose count stops at 1.
class alignas(64) Event {
 public:
  void Signal() {
    signalled_.exchange(1);
    if (sleepers_.load() != 0) FutexWake(&signalled_);
  }
  uint32_t Wait() {
    while (signalled_.exchange(0) == 0) {
      sleepers_.fetch_add(1);
      FutexWait(&signalled_, 0);
      sleepers_.fetch_sub(1);
    }
    return 0;
  }

 private:
  std::atomic<uint32_t> signalled_{0};
  std::atomic<uint32_t> sleepers_{0};
};

// A mutex with the promises of the library's: recursive, and robust if its owner ends.
class Mutex {
 public:
  Mutex() {
    pthread_mutexattr_t kind;
    pthread_mutexattr_init(&kind);
    pthread_mutexattr_settype(&kind, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutexattr_setrobust(&kind, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex_, &kind);
    pthread_mutexattr_destroy(&kind);
  }
  ~Mutex() { pthread_mutex_destroy(&mutex_); }
  uint32_t Take() { return static_cast<uint32_t>(pthread_mutex_lock(&mutex_)); }
  void Give() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_;
};

class CriticalSection {
 public:
  CriticalSection() {
    pthread_mutexattr_t kind;
    pthread_mutexattr_init(&kind);
    pthread_mutexattr_settype(&kind, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex_, &kind);
    pthread_mutexattr_destroy(&kind);
  }
  ~CriticalSection() { pthread_mutex_destroy(&mutex_); }
  void Enter() { pthread_mutex_lock(&mutex_); }
  void Leave() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_;
};

class Pipe {
 public:
  Pipe() {
    if (pipe2(ends_, O_CLOEXEC) != 0) std::abort();
  }
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  void Write(const void* data, uint32_t length) {
    if (write(ends_[1], data, length) < 0) std::abort();
  }
  void Read(void* data, uint32_t length) {
    if (read(ends_[0], data, length) < 0) std::abort();
  }

 private:
  int ends_[2];
};

class ThreadSlot {
 public:
  ThreadSlot() { pthread_key_create(&key_, nullptr); }
  ~ThreadSlot() { pthread_key_delete(key_); }
  void* Read() const { return pthread_getspecific(key_); }

 private:
  pthread_key_t key_;
};

inline uint32_t ThreadId() { return static_cast<uint32_t>(gettid()); }
inline void YieldThread() { sched_yield(); }

inline uint64_t TickCount() {
  timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<uint64_t>(now.tv_sec);
}

inline int64_t Counter() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000 + now.tv_nsec;
}

// The loaded library.
inline void* Library() { return dlopen("libkivsdu.so.0", RTLD_NOW | RTLD_NOLOAD); }
inline void* FindEntry(void* library, const char* name) { return dlsym(library, name); }

// ---- Files by descriptor ----

inline std::string TemporaryName() { return "/tmp/kivsdu-bench-" + std::to_string(getpid()); }

inline void RemoveFile(const std::string& name) { unlink(name.c_str()); }
inline int64_t Seek(int file, int32_t offset) { return lseek(file, offset, SEEK_SET); }
inline int64_t ReadFile(int file, void* data, uint32_t length) { return read(file, data, length); }
inline int64_t WriteFile(int file, const void* data, uint32_t length) {
  return write(file, data, length);
}
inline int64_t ReadFileAt(int file, uint32_t offset, void* data, uint32_t length) {
  return pread(file, data, length, offset);
}
inline int64_t WriteFileAt(int file, uint32_t offset, const void* data, uint32_t length) {
  return pwrite(file, data, length, offset);
}

// ---- Unbuffered files ----

// Opens a file that exists. Up to kMaxUnderWay reads run at the same time on a ring of its own.
class DirectFile {
 public:
  static constexpr uint32_t kMaxUnderWay = 32;

  DirectFile(const std::string& path, bool async)
      : file_(open(path.c_str(), O_RDWR | O_DIRECT | O_CLOEXEC)), async_(async) {
    if (file_ < 0 || (async_ && io_uring_queue_init(2 * kMaxUnderWay, &ring_, 0) != 0)) {
      std::fputs("the file system has no unbuffered files, or the kernel no ring\n", stderr);
      std::exit(1);
    }
  }
  ~DirectFile() {
    if (async_) io_uring_queue_exit(&ring_);
    close(file_);
  }
  DirectFile(const DirectFile&) = delete;
  DirectFile& operator=(const DirectFile&) = delete;

  int64_t Read(uint32_t offset, void* data, uint32_t length) {
    return pread(file_, data, length, offset);
  }
  int64_t Write(uint32_t offset, const void* data, uint32_t length) {
    return pwrite(file_, data, length, offset);
  }

  void StartRead(uint32_t number, uint32_t offset, void* data, uint32_t length) {
    io_uring_sqe* entry = io_uring_get_sqe(&ring_);
    io_uring_prep_read(entry, file_, data, length, offset);
    io_uring_sqe_set_data64(entry, number);
    io_uring_submit(&ring_);
    done_[number] = false;
  }
  void Collect(uint32_t number) {
    while (!done_[number]) {
      io_uring_cqe* entry = nullptr;
      if (io_uring_wait_cqe(&ring_, &entry) != 0) continue;
      done_[io_uring_cqe_get_data64(entry)] = true;
      io_uring_cqe_seen(&ring_, entry);
    }
  }

 private:
  int file_;
  bool async_;
  io_uring ring_ = {};
  bool done_[kMaxUnderWay] = {};
};

}  // namespace kiv::bench::raw

#endif
