// Kernel objects: semaphores, mutexes and events.
//
// A wait with a limit returns whether it succeeded; false means that the time was over. Only other
// failures throw or set the ErrorCode. Limits above the longest that the system knows are shortened
// to that.
#ifndef KIVSDU_CPP_OBJECTS_HPP
#define KIVSDU_CPP_OBJECTS_HPP

#include <algorithm>
#include <chrono>
#include <utility>

#include "../event.h"
#include "../mutex.h"
#include "../semaphore.h"
#include "error.hpp"

namespace kivsdu {
namespace detail {

// A handle that is closed with its owner.
template <uint32_t (*CloseHandle)(KivHandle*)>
class OwnedHandle {
 public:
  OwnedHandle() noexcept = default;
  OwnedHandle(OwnedHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  OwnedHandle& operator=(OwnedHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~OwnedHandle() {
    if (handle_ != nullptr) CloseHandle(&handle_);
  }

  KivHandle* Address() noexcept { return &handle_; }
  bool IsOpen() const noexcept { return handle_ != nullptr; }

 private:
  KivHandle handle_ = nullptr;
};

inline uint32_t CloseSemaphore(KivHandle* handle) { return KivSdCntSemClose(nullptr, handle); }
inline uint32_t CloseMutex(KivHandle* handle) { return KivSdMutexClose(nullptr, handle); }
inline uint32_t CloseGate(KivHandle* handle) { return KivSdEventClose(nullptr, handle); }
inline uint32_t CloseEvent(KivHandle* handle) { return KivSdStdEventClose(nullptr, handle); }

// Milliseconds of a limit. The library's waits take signed numbers of 32 bits.
inline uint32_t Limit(std::chrono::milliseconds time) noexcept {
  constexpr int64_t kLongest = INT32_MAX;
  return static_cast<uint32_t>(std::clamp<int64_t>(time.count(), 0, kLongest));
}

// A wait's outcome: whether it succeeded, and the error unless the time was over.
inline bool Waited(const ErrorCode& outcome, uint32_t timedOut, ErrorCode& error) noexcept {
  error = outcome.Status() == timedOut ? ErrorCode() : outcome;
  return outcome.Status() == KIV_ST_OK;
}

}  // namespace detail

// ---- Semaphores ----

class Semaphore {
 public:
  // Makes a semaphore of this process, or opens or makes one that processes share.
  //
  //   name  null for a semaphore of this process alone
  Semaphore(const char* name, int32_t initialCount, int32_t maximumCount) {
    ErrorCode error;
    *this = Semaphore(name, initialCount, maximumCount, error);
    ThrowIfFailed(error, "make a semaphore");
  }
  Semaphore(const char* name, int32_t initialCount, int32_t maximumCount,
            ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdCntSemCreate(ctx, name, initialCount, maximumCount, handle_.Address());
    });
  }

  void acquire() {
    ErrorCode error;
    Wait(KIV_WAIT_INFINITE, error);
    ThrowIfFailed(error, "acquire a semaphore");
  }
  bool try_acquire() { return try_acquire_for(std::chrono::milliseconds(0)); }
  bool try_acquire_for(std::chrono::milliseconds limit) {
    ErrorCode error;
    const bool acquired = try_acquire_for(limit, error);
    ThrowIfFailed(error, "acquire a semaphore");
    return acquired;
  }
  bool try_acquire_for(std::chrono::milliseconds limit, ErrorCode& error) noexcept {
    return Wait(detail::Limit(limit), error);
  }

  void release(int32_t count = 1) {
    ErrorCode error;
    release(count, error);
    ThrowIfFailed(error, "release a semaphore");
  }
  void release(int32_t count, ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdCntSemClear(ctx, handle_.Address(), count, nullptr);
    });
  }

  KivHandle* Get() noexcept { return handle_.Address(); }

 private:
  bool Wait(uint32_t limitMs, ErrorCode& error) noexcept {
    const ErrorCode outcome = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdCntSemRequest(ctx, handle_.Address(), limitMs);
    });
    return detail::Waited(outcome, KIV_ST_SEM_TIMEOUT, error);
  }

  detail::OwnedHandle<detail::CloseSemaphore> handle_;
};

// ---- Mutexes ----

// A kernel mutex. The owner may take it again. A lock whose last owner ended without releasing it
// fails once with KIV_ST_MUTEX_REQUEST, and is then free: the data that it guards may be half
// changed.
class Mutex {
 public:
  //   name  for other processes; null for a mutex of this process alone
  explicit Mutex(const char* name = nullptr) {
    ErrorCode error;
    *this = Mutex(name, error);
    ThrowIfFailed(error, "make a mutex");
  }
  Mutex(const char* name, ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdMutexCreate(ctx, name, handle_.Address());
    });
  }

  void lock() {
    ErrorCode error;
    Wait(KIV_WAIT_INFINITE, error);
    ThrowIfFailed(error, "take a mutex");
  }
  bool try_lock() { return try_lock_for(std::chrono::milliseconds(0)); }
  bool try_lock_for(std::chrono::milliseconds limit) {
    ErrorCode error;
    const bool taken = try_lock_for(limit, error);
    ThrowIfFailed(error, "take a mutex");
    return taken;
  }
  bool try_lock_for(std::chrono::milliseconds limit, ErrorCode& error) noexcept {
    return Wait(detail::Limit(limit), error);
  }
  void unlock() noexcept { KivSdMutexClear(nullptr, handle_.Address()); }

  KivHandle* Get() noexcept { return handle_.Address(); }

 private:
  bool Wait(uint32_t limitMs, ErrorCode& error) noexcept {
    const ErrorCode outcome = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdMutexRequest(ctx, handle_.Address(), limitMs);
    });
    // The caller owns an abandoned mutex in spite of the failure, but the standard's guards do not
    // release a lock that they could not take.
    if (outcome.Status() == KIV_ST_MUTEX_REQUEST) unlock();
    return detail::Waited(outcome, KIV_ST_MUTEX_TIMEOUT, error);
  }

  detail::OwnedHandle<detail::CloseMutex> handle_;
};

// ---- Events ----

// A gate: open at first; the first thread that passes closes it behind itself.
class Gate {
 public:
  Gate() {
    ErrorCode error;
    *this = Gate(error);
    ThrowIfFailed(error, "make a gate");
  }
  explicit Gate(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdEventCreate(ctx, handle_.Address());
    });
  }

  // The library's "clear" opens a gate, and its "set" closes it.
  void Open() { ThrowIfFailed(Do(KivSdEventClear), "open a gate"); }
  void Open(ErrorCode& error) noexcept { error = Do(KivSdEventClear); }
  void Close() { ThrowIfFailed(Do(KivSdEventSet), "close a gate"); }
  void Close(ErrorCode& error) noexcept { error = Do(KivSdEventSet); }

  void Pass() {
    ErrorCode error;
    Wait(KIV_WAIT_INFINITE, error);
    ThrowIfFailed(error, "pass a gate");
  }
  bool PassFor(std::chrono::milliseconds limit) {
    ErrorCode error;
    const bool passed = PassFor(limit, error);
    ThrowIfFailed(error, "pass a gate");
    return passed;
  }
  bool PassFor(std::chrono::milliseconds limit, ErrorCode& error) noexcept {
    return Wait(detail::Limit(limit), error);
  }

  KivHandle* Get() noexcept { return handle_.Address(); }

 private:
  ErrorCode Do(uint32_t (*operation)(KivSdContext*, KivHandle*)) noexcept {
    return detail::Outcome(OsErrorKind::kSystem,
                           [&](KivSdContext* ctx) { return operation(ctx, handle_.Address()); });
  }
  bool Wait(uint32_t limitMs, ErrorCode& error) noexcept {
    const ErrorCode outcome = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdEventWait(ctx, handle_.Address(), limitMs);
    });
    return detail::Waited(outcome, KIV_ST_EVENT_TIMEOUT, error);
  }

  detail::OwnedHandle<detail::CloseGate> handle_;
};

// An event: not signalled at first; each signal lets one thread through.
class Event {
 public:
  Event() {
    ErrorCode error;
    *this = Event(error);
    ThrowIfFailed(error, "make an event");
  }
  explicit Event(ErrorCode& error) noexcept { error = Do(KivSdStdEventCreate); }

  void Set() { ThrowIfFailed(Do(KivSdStdEventSet), "signal an event"); }
  void Set(ErrorCode& error) noexcept { error = Do(KivSdStdEventSet); }
  void Reset() { ThrowIfFailed(Do(KivSdStdEventReset), "reset an event"); }
  void Reset(ErrorCode& error) noexcept { error = Do(KivSdStdEventReset); }

  void Wait() { ThrowIfFailed(Do(KivSdStdEventWait), "wait for an event"); }
  bool WaitFor(std::chrono::milliseconds limit) {
    ErrorCode error;
    const bool signalled = WaitFor(limit, error);
    ThrowIfFailed(error, "wait for an event");
    return signalled;
  }
  bool WaitFor(std::chrono::milliseconds limit, ErrorCode& error) noexcept {
    const ErrorCode outcome = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdStdEventTimedWait(ctx, handle_.Address(),
                                    static_cast<int32_t>(detail::Limit(limit)));
    });
    return detail::Waited(outcome, KIV_ST_EVENT_TIMEOUT, error);
  }

  KivHandle* Get() noexcept { return handle_.Address(); }

 private:
  ErrorCode Do(uint32_t (*operation)(KivSdContext*, KivHandle*)) noexcept {
    return detail::Outcome(OsErrorKind::kSystem,
                           [&](KivSdContext* ctx) { return operation(ctx, handle_.Address()); });
  }

  detail::OwnedHandle<detail::CloseEvent> handle_;
};

}  // namespace kivsdu

#endif
