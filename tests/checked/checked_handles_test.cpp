// What the checked flavour finds in handles: each operation refuses a closed handle and one of
// another kind, and correct use is not reported.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "checked/misuse.h"
#include "kivsdu/kivsdu.h"

namespace {

using namespace kiv::test;

// Long enough for any machine; only a failing test waits so long.
constexpr uint32_t kLongMs = 60'000;

using Use = std::function<uint32_t(KivHandle* handle)>;

uint32_t Nothing(void*) { return 0; }

KivHandle MakeEvent() {
  KivHandle event = nullptr;
  EXPECT_EQ(KivSdEventCreate(nullptr, &event), KIV_ST_OK);
  return event;
}

KivHandle MakeSemaphore() {
  KivHandle semaphore = nullptr;
  EXPECT_EQ(KivSdCntSemCreate(nullptr, nullptr, 1, 2, &semaphore), KIV_ST_OK);
  return semaphore;
}

KivHandle MakeMutex() {
  KivHandle mutex = nullptr;
  EXPECT_EQ(KivSdMutexCreate(nullptr, nullptr, &mutex), KIV_ST_OK);
  return mutex;
}

KivHandle MakeThread() {
  KivHandle thread = nullptr;
  uint32_t id = 0;
  EXPECT_EQ(KivSdThreadCreate(nullptr, Nothing, 0, 0, nullptr, &id, &thread), KIV_ST_OK);
  return thread;
}

KivHandle MakePipe() {
  KivHandle readEnd = nullptr;
  KivHandle writeEnd = nullptr;
  EXPECT_EQ(KivSdPipeCreate(nullptr, &readEnd, &writeEnd, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdPipeClose(nullptr, &writeEnd), KIV_ST_OK);
  return readEnd;
}

KivHandle MakeBlock() {
  KivHandle mapping = nullptr;
  void* view = nullptr;
  uint32_t id = 0;
  EXPECT_EQ(KivSdSharedMemAlloc(nullptr, "kivsdu checked handles", 4096,
                                KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                                KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping, &id, &view),
            KIV_ST_OK);
  return mapping;
}

uint32_t CloseBlock(KivHandle* mapping) { return KivSdSharedMemFree(nullptr, *mapping, nullptr); }

uint32_t JoinAndDelete(KivHandle* thread) {
  EXPECT_EQ(KivSdThreadJoin(nullptr, thread), KIV_ST_OK);
  return KivSdThreadDelete(nullptr, thread);
}

// A kind of object, with its words in a report.
struct Kind {
  const char* words;
  KivHandle (*make)();
  Use close;
};

const Kind kEvent = {"an event", MakeEvent,
                     [](KivHandle* h) { return KivSdEventClose(nullptr, h); }};
const Kind kSemaphore = {"a semaphore", MakeSemaphore,
                         [](KivHandle* h) { return KivSdCntSemClose(nullptr, h); }};
// Keeps the variable, unlike KivSdMutexClose.
const Kind kMutex = {"a mutex", MakeMutex, [](KivHandle* h) {
                       KivHandle copy = *h;
                       return KivSdMutexClose(nullptr, &copy);
                     }};
const Kind kThread = {"a thread", MakeThread, JoinAndDelete};
const Kind kPipe = {"a pipe", MakePipe, [](KivHandle* h) { return KivSdPipeClose(nullptr, h); }};
const Kind kBlock = {"a shared block", MakeBlock, CloseBlock};

struct Operation {
  const char* name;
  const Kind* kind;  // null if it accepts every kind
  Use use;
};

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

uint32_t Peek(KivHandle* pipe) {
  uint32_t value = 0;
  char byte = 0;
  return KivSdNamedPipePeek(nullptr, pipe, 1, &byte, &value, &value, &value);
}

const Operation kOperations[] = {
    {"KivSdEventClose", &kEvent, [](KivHandle* h) { return KivSdEventClose(nullptr, h); }},
    {"KivSdEventSet", &kEvent, [](KivHandle* h) { return KivSdEventSet(nullptr, h); }},
    {"KivSdEventClear", &kEvent, [](KivHandle* h) { return KivSdEventClear(nullptr, h); }},
    {"KivSdEventWait", nullptr, [](KivHandle* h) { return KivSdEventWait(nullptr, h, kLongMs); }},
    {"KivSdStdEventClose", &kEvent, [](KivHandle* h) { return KivSdStdEventClose(nullptr, h); }},
    {"KivSdStdEventSet", &kEvent, [](KivHandle* h) { return KivSdStdEventSet(nullptr, h); }},
    {"KivSdStdEventReset", &kEvent, [](KivHandle* h) { return KivSdStdEventReset(nullptr, h); }},
    {"KivSdStdEventWait", nullptr, [](KivHandle* h) { return KivSdStdEventWait(nullptr, h); }},
    {"KivSdStdEventTimedWait", nullptr,
     [](KivHandle* h) { return KivSdStdEventTimedWait(nullptr, h, kLongMs); }},
    {"KivSdCntSemClose", &kSemaphore, [](KivHandle* h) { return KivSdCntSemClose(nullptr, h); }},
    {"KivSdCntSemRequest", &kSemaphore,
     [](KivHandle* h) { return KivSdCntSemRequest(nullptr, h, kLongMs); }},
    {"KivSdCntSemClear", &kSemaphore,
     [](KivHandle* h) { return KivSdCntSemClear(nullptr, h, 1, nullptr); }},
    {"KivSdMutexClose", &kMutex, [](KivHandle* h) { return KivSdMutexClose(nullptr, h); }},
    {"KivSdMutexRequest", &kMutex,
     [](KivHandle* h) { return KivSdMutexRequest(nullptr, h, kLongMs); }},
    {"KivSdMutexClear", &kMutex, [](KivHandle* h) { return KivSdMutexClear(nullptr, h); }},
    {"KivSdThreadDelete", &kThread, [](KivHandle* h) { return KivSdThreadDelete(nullptr, h); }},
    {"KivSdThreadJoin", &kThread, [](KivHandle* h) { return KivSdThreadJoin(nullptr, h); }},
    {"KivSdThreadSuspend", &kThread, [](KivHandle* h) { return KivSdThreadSuspend(nullptr, h); }},
    {"KivSdThreadResume", &kThread, [](KivHandle* h) { return KivSdThreadResume(nullptr, h); }},
    {"KivSdThreadPriorityGet", &kThread,
     [](KivHandle* h) {
       int32_t priority = 0;
       return KivSdThreadPriorityGet(nullptr, h, &priority);
     }},
    {"KivSdThreadPrioritySet", &kThread,
     [](KivHandle* h) { return KivSdThreadPrioritySet(nullptr, h, 0); }},
    {"KivSdPipeClose", &kPipe, [](KivHandle* h) { return KivSdPipeClose(nullptr, h); }},
    {"KivSdPipeRead", &kPipe,
     [](KivHandle* h) {
       char byte = 0;
       uint32_t count = 0;
       return KivSdPipeRead(nullptr, h, &byte, 1, &count);
     }},
    {"KivSdPipeWrite", &kPipe,
     [](KivHandle* h) {
       uint32_t count = 0;
       return KivSdPipeWrite(nullptr, h, "x", 1, &count);
     }},
    {"KivSdNamedPipeConnect", &kPipe,
     [](KivHandle* h) { return KivSdNamedPipeConnect(nullptr, h); }},
    {"KivSdNamedPipeDisconnect", &kPipe,
     [](KivHandle* h) { return KivSdNamedPipeDisconnect(nullptr, h); }},
    {"KivSdNamedPipePeek", &kPipe, Peek},
    {"KivSdSharedMemFree", &kBlock, CloseBlock},
};

class EachOperation : public testing::TestWithParam<Operation> {};

const Kind& KindFor(const Operation& operation) {
  return operation.kind != nullptr ? *operation.kind : kEvent;
}

TEST_P(EachOperation, FindsAClosedHandle) {
  const auto useClosed = [] {
    const Kind& kind = KindFor(GetParam());
    KivHandle handle = kind.make();
    EXPECT_EQ(kind.close(&handle), KIV_ST_OK);
    static_cast<void>(GetParam().use(&handle));
  };
  EXPECT_MISUSE(useClosed(), " is closed, or never was one", GetParam().name);
}

TEST_P(EachOperation, FindsAHandleOfAnotherKind) {
  if (GetParam().kind == nullptr) return;  // a wait
  const Kind& other = GetParam().kind == &kEvent ? kMutex : kEvent;
  const auto useOther = [&other] {
    KivHandle handle = other.make();
    static_cast<void>(GetParam().use(&handle));
  };
  EXPECT_MISUSE(useOther(),
                std::string(" is that of ") + other.words + ", not of " + GetParam().kind->words,
                GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Handles, EachOperation, testing::ValuesIn(kOperations));

// ---- Correct use, which would end this program if it were reported ----

// The results do not matter: an anonymous pipe cannot be connected, for example.
TEST(CorrectUse, IsNotReported) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    KivHandle handle = KindFor(operation).make();
    if (KindFor(operation).make == MakeEvent) static_cast<void>(KivSdStdEventSet(nullptr, &handle));
    static_cast<void>(operation.use(&handle));
  }
}

// Hosts give a variable without a handle to these operations, and read the status.
TEST(NullHandle, IsLeftToTheOperation) {
  for (const Operation& operation : kOperations) {
    KivHandle handle = nullptr;
    static_cast<void>(operation.use(&handle));
  }
}

TEST(Wait, AcceptsAThread) {
  KivHandle thread = MakeThread();
  EXPECT_EQ(KivSdEventWait(nullptr, &thread, kLongMs), KIV_ST_OK);
  EXPECT_EQ(KivSdStdEventTimedWait(nullptr, &thread, kLongMs), KIV_ST_OK);
}

TEST(NoPipe, IsLeftToTheOperation) {
  auto pipe = reinterpret_cast<KivHandle>(intptr_t{-1});
  uint32_t count = 0;
  EXPECT_NE(KivSdPipeWrite(nullptr, &pipe, "x", 1, &count), KIV_ST_OK);
}

TEST(CallingThread, IsAThread) {
  int32_t priority = 0;
  EXPECT_EQ(KivSdThreadPriorityGet(nullptr, nullptr, &priority), KIV_ST_OK);
  KivHandle self = nullptr;
  EXPECT_EQ(KivSdThreadHandleGet(nullptr, &self), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadPriorityGet(nullptr, &self, &priority), KIV_ST_OK);
}

}  // namespace
