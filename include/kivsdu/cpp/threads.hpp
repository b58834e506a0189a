// Threads of the library, joined with their owner.
#ifndef KIVSDU_CPP_THREADS_HPP
#define KIVSDU_CPP_THREADS_HPP

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

#include "../thread.h"
#include "error.hpp"
#include "objects.hpp"

namespace kivsdu {
namespace detail {

inline uint32_t CloseThread(KivHandle* handle) { return KivSdThreadDelete(nullptr, handle); }

// Runs a routine on its own thread, and returns the thread's exit code. An exception that leaves
// the routine ends the process, because no frame above can catch it.
template <class Routine>
uint32_t RunRoutine(void* argument) noexcept {  // NOLINT(bugprone-exception-escape)
  const std::unique_ptr<Routine> routine(static_cast<Routine*>(argument));
  if constexpr (std::convertible_to<std::invoke_result_t<Routine&>, uint32_t>) {
    return (*routine)();
  } else {
    (*routine)();
    return 0;
  }
}

template <class Routine, class Owner>
inline constexpr bool kIsRoutineOf =
    std::is_invocable<std::add_lvalue_reference_t<std::decay_t<Routine>>>::value &&
    !std::is_same_v<std::decay_t<Routine>, Owner>;

template <class Routine, class Owner>
concept RoutineOf = kIsRoutineOf<Routine, Owner>;

}  // namespace detail

// A thread. The destructor waits until the thread has ended.
class Thread {
 public:
  Thread() noexcept = default;

  // Starts a thread.
  //
  //   routine     called without arguments on a copy of itself. Its result is the exit code if that
  //               is a number; else the exit code is 0
  //   stackBytes  0 for the system's default
  template <detail::RoutineOf<Thread> Routine>
  // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): no Thread is a RoutineOf<Thread>
  explicit Thread(Routine&& routine, uint32_t stackBytes = 0) {
    ErrorCode error;
    Start(std::forward<Routine>(routine), stackBytes, error);
    ThrowIfFailed(error, "start a thread");
  }
  // Throws std::bad_alloc if there is no memory for the copy of the routine.
  template <detail::RoutineOf<Thread> Routine>
  Thread(Routine&& routine, uint32_t stackBytes, ErrorCode& error) {
    Start(std::forward<Routine>(routine), stackBytes, error);
  }

  Thread(Thread&&) noexcept = default;
  Thread& operator=(Thread&& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(id_, other.id_);
    return *this;
  }
  ~Thread() { Join(); }

  // Whether there is a thread to join.
  bool IsJoinable() const noexcept { return handle_.IsOpen(); }

  // Waits until the thread has ended. Does nothing if it was joined or detached before. A thread
  // must not join itself.
  void Join() noexcept {
    if (!IsJoinable()) return;
    KivSdThreadJoin(nullptr, handle_.Address());
    Detach();
  }
  // Lets the thread run on without an owner.
  void Detach() noexcept { handle_ = {}; }

  // The thread's identifier. The system may give it to another thread after this one has ended.
  uint32_t Id() const noexcept { return id_; }

  // KIV_THREAD_PRIORITY_...
  int32_t Priority() {
    ErrorCode error;
    const int32_t priority = Priority(error);
    ThrowIfFailed(error, "read a thread's priority");
    return priority;
  }
  int32_t Priority(ErrorCode& error) noexcept {
    int32_t priority = 0;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdThreadPriorityGet(ctx, handle_.Address(), &priority);
    });
    return priority;
  }
  void SetPriority(int32_t priority) {
    ErrorCode error;
    SetPriority(priority, error);
    ThrowIfFailed(error, "set a thread's priority");
  }
  void SetPriority(int32_t priority, ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdThreadPrioritySet(ctx, handle_.Address(), priority);
    });
  }

  KivHandle* Get() noexcept { return handle_.Address(); }

 private:
  template <class Routine>
  void Start(Routine&& routine, uint32_t stackBytes, ErrorCode& error) {
    using Copy = std::decay_t<Routine>;
    auto copy = std::make_unique<Copy>(std::forward<Routine>(routine));
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdThreadCreate(ctx, detail::RunRoutine<Copy>, 0, stackBytes, copy.get(), &id_,
                               handle_.Address());
    });
    // The thread owns the copy once it has started, and may have deleted it already.
    if (!error) static_cast<void>(copy.release());
  }

  detail::OwnedHandle<detail::CloseThread> handle_;
  uint32_t id_ = 0;
};

}  // namespace kivsdu

#endif
