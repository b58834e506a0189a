// The checked operations on handles of semaphores, mutexes, events, threads, pipes and shared memory.
// Each asks the system what the handle names. A wait accepts every kind of object, because hosts
// wait for threads and processes with the operations of events.
#include "checked/handle_check.h"
#include "checked/unchecked_handles.h"

using namespace kiv;
using namespace kiv::checked;

uint32_t KivSdEventClose(KivSdContext* ctx, KivHandle* event) {
  CheckHandle(event, os::ObjectKind::kEvent, "KivSdEventClose");
  return KivUncheckedEventClose(ctx, event);
}

uint32_t KivSdEventSet(KivSdContext* ctx, KivHandle* event) {
  CheckHandle(event, os::ObjectKind::kEvent, "KivSdEventSet");
  return KivUncheckedEventSet(ctx, event);
}

uint32_t KivSdEventClear(KivSdContext* ctx, KivHandle* event) {
  CheckHandle(event, os::ObjectKind::kEvent, "KivSdEventClear");
  return KivUncheckedEventClear(ctx, event);
}

uint32_t KivSdEventWait(KivSdContext* ctx, KivHandle* event, uint32_t timeoutMs) {
  CheckIsOpen(event, "KivSdEventWait");
  return KivUncheckedEventWait(ctx, event, timeoutMs);
}

uint32_t KivSdStdEventClose(KivSdContext* ctx, KivHandle* event) {
  CheckHandle(event, os::ObjectKind::kEvent, "KivSdStdEventClose");
  return KivUncheckedStdEventClose(ctx, event);
}

uint32_t KivSdStdEventSet(KivSdContext* ctx, KivHandle* event) {
  CheckHandle(event, os::ObjectKind::kEvent, "KivSdStdEventSet");
  return KivUncheckedStdEventSet(ctx, event);
}

uint32_t KivSdStdEventReset(KivSdContext* ctx, KivHandle* event) {
  CheckHandle(event, os::ObjectKind::kEvent, "KivSdStdEventReset");
  return KivUncheckedStdEventReset(ctx, event);
}

uint32_t KivSdStdEventWait(KivSdContext* ctx, KivHandle* event) {
  CheckIsOpen(event, "KivSdStdEventWait");
  return KivUncheckedStdEventWait(ctx, event);
}

uint32_t KivSdStdEventTimedWait(KivSdContext* ctx, KivHandle* event, int32_t timeoutMs) {
  CheckIsOpen(event, "KivSdStdEventTimedWait");
  return KivUncheckedStdEventTimedWait(ctx, event, timeoutMs);
}

uint32_t KivSdCntSemClose(KivSdContext* ctx, KivHandle* semaphore) {
  CheckHandle(semaphore, os::ObjectKind::kSemaphore, "KivSdCntSemClose");
  return KivUncheckedCntSemClose(ctx, semaphore);
}

uint32_t KivSdCntSemRequest(KivSdContext* ctx, KivHandle* semaphore, uint64_t timeoutMs) {
  CheckHandle(semaphore, os::ObjectKind::kSemaphore, "KivSdCntSemRequest");
  return KivUncheckedCntSemRequest(ctx, semaphore, timeoutMs);
}

uint32_t KivSdCntSemClear(KivSdContext* ctx, KivHandle* semaphore, int32_t releaseCount,
                          int32_t* previousCount) {
  CheckHandle(semaphore, os::ObjectKind::kSemaphore, "KivSdCntSemClear");
  return KivUncheckedCntSemClear(ctx, semaphore, releaseCount, previousCount);
}

uint32_t KivSdMutexClose(KivSdContext* ctx, KivHandle* mutex) {
  CheckHandle(mutex, os::ObjectKind::kMutex, "KivSdMutexClose");
  return KivUncheckedMutexClose(ctx, mutex);
}

uint32_t KivSdMutexRequest(KivSdContext* ctx, KivHandle* mutex, uint32_t timeoutMs) {
  CheckHandle(mutex, os::ObjectKind::kMutex, "KivSdMutexRequest");
  return KivUncheckedMutexRequest(ctx, mutex, timeoutMs);
}

uint32_t KivSdMutexClear(KivSdContext* ctx, KivHandle* mutex) {
  CheckHandle(mutex, os::ObjectKind::kMutex, "KivSdMutexClear");
  return KivUncheckedMutexClear(ctx, mutex);
}

uint32_t KivSdThreadDelete(KivSdContext* ctx, KivHandle* thread) {
  CheckHandle(thread, os::ObjectKind::kThread, "KivSdThreadDelete");
  return KivUncheckedThreadDelete(ctx, thread);
}

uint32_t KivSdThreadJoin(KivSdContext* ctx, KivHandle* thread) {
  CheckHandle(thread, os::ObjectKind::kThread, "KivSdThreadJoin");
  return KivUncheckedThreadJoin(ctx, thread);
}

uint32_t KivSdThreadSuspend(KivSdContext* ctx, KivHandle* thread) {
  CheckHandle(thread, os::ObjectKind::kThread, "KivSdThreadSuspend");
  return KivUncheckedThreadSuspend(ctx, thread);
}

uint32_t KivSdThreadResume(KivSdContext* ctx, KivHandle* thread) {
  CheckHandle(thread, os::ObjectKind::kThread, "KivSdThreadResume");
  return KivUncheckedThreadResume(ctx, thread);
}

uint32_t KivSdThreadPriorityGet(KivSdContext* ctx, KivHandle* thread, int32_t* priority) {
  CheckHandle(thread, os::ObjectKind::kThread, "KivSdThreadPriorityGet");
  return KivUncheckedThreadPriorityGet(ctx, thread, priority);
}

uint32_t KivSdThreadPrioritySet(KivSdContext* ctx, KivHandle* thread, int32_t priority) {
  CheckHandle(thread, os::ObjectKind::kThread, "KivSdThreadPrioritySet");
  return KivUncheckedThreadPrioritySet(ctx, thread, priority);
}

uint32_t KivSdPipeClose(KivSdContext* ctx, KivHandle* pipe) {
  CheckHandle(pipe, os::ObjectKind::kPipe, "KivSdPipeClose");
  return KivUncheckedPipeClose(ctx, pipe);
}

uint32_t KivSdPipeRead(KivSdContext* ctx, KivHandle* pipe, void* buffer, uint32_t length,
                       uint32_t* count) {
  CheckHandle(pipe, os::ObjectKind::kPipe, "KivSdPipeRead");
  return KivUncheckedPipeRead(ctx, pipe, buffer, length, count);
}

uint32_t KivSdPipeWrite(KivSdContext* ctx, KivHandle* pipe, const void* buffer, uint32_t length,
                        uint32_t* count) {
  CheckHandle(pipe, os::ObjectKind::kPipe, "KivSdPipeWrite");
  return KivUncheckedPipeWrite(ctx, pipe, buffer, length, count);
}

uint32_t KivSdNamedPipeConnect(KivSdContext* ctx, KivHandle* pipe) {
  CheckHandle(pipe, os::ObjectKind::kPipe, "KivSdNamedPipeConnect");
  return KivUncheckedNamedPipeConnect(ctx, pipe);
}

uint32_t KivSdNamedPipeDisconnect(KivSdContext* ctx, KivHandle* pipe) {
  CheckHandle(pipe, os::ObjectKind::kPipe, "KivSdNamedPipeDisconnect");
  return KivUncheckedNamedPipeDisconnect(ctx, pipe);
}

uint32_t KivSdNamedPipePeek(KivSdContext* ctx, KivHandle* pipe, uint32_t bufferBytes, void* buffer,
                            uint32_t* bytesRead, uint32_t* bytesAvailable, uint32_t* bytesLeft) {
  CheckHandle(pipe, os::ObjectKind::kPipe, "KivSdNamedPipePeek");
  return KivUncheckedNamedPipePeek(ctx, pipe, bufferBytes, buffer, bytesRead, bytesAvailable,
                                   bytesLeft);
}

uint32_t KivSdSharedMemFree(KivSdContext* ctx, KivHandle mapping, void* view) {
  CheckHandle(&mapping, os::ObjectKind::kSharedMemory, "KivSdSharedMemFree");
  return KivUncheckedSharedMemFree(ctx, mapping, view);
}
