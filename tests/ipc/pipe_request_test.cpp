// The arguments that the pipe operations pass to the system, and when they run the lease guard.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/heap_watch.h"
#include "support/import_patch.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::GuardWatch;
using kiv::test::HeapWatch;
using kiv::test::ImportPatch;
using kiv::test::ScriptedImport;

constexpr uint32_t kSentinel = 0x5A5A5A5A;
const std::string kHere = "\\\\.\\PIPE\\";

KivHandle Handle(uintptr_t value) { return reinterpret_cast<KivHandle>(value); }

// ---- Stubs that record their arguments during the call ----

struct Asked {
  std::string path;
  std::vector<uint32_t> numbers;
  void* templateFile;
  bool hasAttributes;
#ifdef _WIN32
  // Properties of the access list.
  DWORD attributesBytes;
  BOOL inheritable;
  BOOL valid;
  DWORD revision;
  BOOL present;
  BOOL defaulted;
  bool isNull;
#endif
};
Asked asked;

#ifdef _WIN32
const void* AccessListOf(const SECURITY_ATTRIBUTES* attributes) {
  return attributes->lpSecurityDescriptor;
}

void NoteAccessList(SECURITY_ATTRIBUTES* a) {
  asked.attributesBytes = a->nLength;
  asked.inheritable = a->bInheritHandle;
  asked.valid = IsValidSecurityDescriptor(a->lpSecurityDescriptor);
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  GetSecurityDescriptorControl(a->lpSecurityDescriptor, &control, &asked.revision);
  ACL other = {};
  ACL* list = &other;
  GetSecurityDescriptorDacl(a->lpSecurityDescriptor, &asked.present, &list, &asked.defaulted);
  asked.isNull = list == nullptr;
}
#else
// The access list itself: its storage is not used.
const void* AccessListOf(const SECURITY_ATTRIBUTES* attributes) { return attributes; }

void NoteAccessList(SECURITY_ATTRIBUTES*) {}
#endif

HANDLE WINAPI KeepCreate(const char* path, DWORD openMode, DWORD pipeMode, DWORD instances,
                         DWORD outBytes, DWORD inBytes, DWORD timeoutMs, SECURITY_ATTRIBUTES* a) {
  asked = {};
  asked.path = path;
  asked.numbers = {openMode, pipeMode, instances, outBytes, inBytes, timeoutMs};
  asked.hasAttributes = a != nullptr;
  if (a != nullptr) NoteAccessList(a);
  return Handle(16);
}

HANDLE WINAPI KeepOpen(const char* path, DWORD access, DWORD shareMode, SECURITY_ATTRIBUTES* a,
                       DWORD disposition, DWORD flags, HANDLE templateFile) {
  asked = {};
  asked.path = path;
  asked.numbers = {access, shareMode, disposition, flags};
  asked.hasAttributes = a != nullptr;
  asked.templateFile = templateFile;
  return Handle(16);
}

BOOL WINAPI KeepWait(const char* path, DWORD timeoutMs) {
  asked = {};
  asked.path = path;
  asked.numbers = {timeoutMs};
  return TRUE;
}

class PipeRequest : public testing::Test {
 protected:
  PipeRequest() { asked = {}; }

  const ImportPatch create_{"CreateNamedPipeA", reinterpret_cast<void*>(&KeepCreate)};
  const ImportPatch open_{"CreateFileA", reinterpret_cast<void*>(&KeepOpen)};
  const ImportPatch wait_{"WaitNamedPipeA", reinterpret_cast<void*>(&KeepWait)};
};

uint32_t Create(const std::string& name, KivHandle* pipe) {
  return KivSdNamedPipeCreate(nullptr, name.c_str(), pipe, 3, 0, 1, 4096, 4096, 50);
}

// ---- Paths ----

TEST_F(PipeRequest, AllocatesExactlyTheBytesOfThePathForNamesOfAnyLength) {
  for (const size_t length : {0u, 1u, 7u, 246u, 247u, 256u, 260u, 1000u, 70000u}) {
    const std::string name(length, 'n');
    KivHandle pipe = nullptr;
    const HeapWatch heap;
    EXPECT_EQ(Create(name, &pipe), KIV_ST_OK);
    EXPECT_EQ(pipe, Handle(16));
    EXPECT_EQ(asked.path, kHere + name);
    EXPECT_EQ(heap.sizes().at(0), kHere.size() + length + 1);

    EXPECT_EQ(KivSdNamedPipeOpen(nullptr, name.c_str(), name.c_str(), &pipe, 0, 0, 3, 0),
              KIV_ST_OK);
    EXPECT_EQ(asked.path, "\\\\" + name + "\\PIPE\\" + name);
    EXPECT_EQ(heap.sizes().at(2), asked.path.size() + 1);

    EXPECT_EQ(KivSdNamedPipeWait(nullptr, "local", name.c_str(), 0), KIV_ST_OK);
    EXPECT_EQ(asked.path, kHere + name);
    EXPECT_EQ(heap.sizes().at(3), asked.path.size() + 1);
    EXPECT_EQ(heap.sizes().size(), 4u);
    EXPECT_EQ(heap.live(), 0u);
  }
}

TEST_F(PipeRequest, DoesNotUseNamesAsFormats) {
  KivHandle pipe = nullptr;
  EXPECT_EQ(Create("100%s%n\\sub\xE4", &pipe), KIV_ST_OK);
  EXPECT_EQ(asked.path, kHere + "100%s%n\\sub\xE4");
  EXPECT_EQ(KivSdNamedPipeWait(nullptr, "%d", "%p", 0), KIV_ST_OK);
  EXPECT_EQ(asked.path, "\\\\%d\\PIPE\\%p");
}

TEST_F(PipeRequest, MapsOnlyTheWordLocalToThisMachine) {
  struct {
    const char* server;
    const char* machine;
  } const servers[] = {
      {"local", "."},       {"LOCAL", "."},   {"Local", "."},       {"lOCAl", "."},
      {"localx", "localx"}, {"loca", "loca"}, {"l", "l"},           {"", ""},
      {"xlocal", "xlocal"}, {".", "."},       {"local ", "local "}, {"10.0.0.1", "10.0.0.1"},
  };
  for (const auto& server : servers) {
    SCOPED_TRACE(server.server);
    const std::string path = std::string("\\\\") + server.machine + "\\PIPE\\name";
    KivHandle pipe = nullptr;
    EXPECT_EQ(KivSdNamedPipeOpen(nullptr, server.server, "name", &pipe, 0, 0, 3, 0), KIV_ST_OK);
    EXPECT_EQ(pipe, Handle(16));
    EXPECT_EQ(asked.path, path);
    asked.path.clear();
    EXPECT_EQ(KivSdNamedPipeWait(nullptr, server.server, "name", 0), KIV_ST_OK);
    EXPECT_EQ(asked.path, path);
  }
}

// ---- Arguments ----

TEST_F(PipeRequest, CreatePassesItsNumbersOn) {
  Context ctx;
  KivHandle pipe = nullptr;
  CHECK_OK(ctx, KivSdNamedPipeCreate(ctx, "name", &pipe, 0x40080003, 6, 255, 0xFFFFFFFF, 8192, 77));
  EXPECT_EQ(asked.numbers, (std::vector<uint32_t>{0x40080003, 6, 255, 0xFFFFFFFF, 8192, 77}));
  EXPECT_EQ(pipe, Handle(16));
}

TEST_F(PipeRequest, CreateAdmitsEveryUserAndMakesAnInheritableHandle) {
  KivHandle pipe = nullptr;
  const HeapWatch heap;
  EXPECT_EQ(Create("name", &pipe), KIV_ST_OK);
  ASSERT_TRUE(asked.hasAttributes);
#ifdef _WIN32
  EXPECT_EQ(asked.attributesBytes, 24u);
  EXPECT_EQ(asked.inheritable, TRUE);
  EXPECT_TRUE(asked.valid);
  EXPECT_EQ(asked.revision, 1u);
  EXPECT_TRUE(asked.present);
  EXPECT_TRUE(asked.isNull);
  EXPECT_FALSE(asked.defaulted);
  EXPECT_GE(heap.sizes().at(1), static_cast<size_t>(SECURITY_DESCRIPTOR_MIN_LENGTH));
#endif
}

// The system reads the path and the access list during the call, so both must still be allocated.
TEST_F(PipeRequest, KeepsThePathAndTheAccessListDuringTheCall) {
  static const HeapWatch* heap;
  static size_t live;
  static bool pathLives;
  const auto look = [](const char* path, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                       SECURITY_ATTRIBUTES* attributes) -> HANDLE {
    live = heap->live();
    pathLives = heap->IsLive(path) && heap->IsLive(AccessListOf(attributes));
    return Handle(16);
  };
  using Create8 =
      HANDLE (*)(const char*, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, SECURITY_ATTRIBUTES*);
  const ImportPatch patch("CreateNamedPipeA", reinterpret_cast<void*>(static_cast<Create8>(look)));
  const HeapWatch watch;
  heap = &watch;
  KivHandle pipe = nullptr;
  EXPECT_EQ(Create("name", &pipe), KIV_ST_OK);
  EXPECT_EQ(live, 2u);
  EXPECT_TRUE(pathLives);
  EXPECT_EQ(watch.live(), 0u);
}

TEST_F(PipeRequest, OpenAddsOnlyTheOverlappedFlag) {
  Context ctx;
  for (const uint32_t flags : {0u, 0x40000000u, 0x00100000u, 0xFFFFFFFFu}) {
    KivHandle pipe = nullptr;
    CHECK_OK(ctx, KivSdNamedPipeOpen(ctx, "local", "name", &pipe, 0xC0000000, 2, 5, flags));
    EXPECT_EQ(asked.numbers, (std::vector<uint32_t>{0xC0000000, 2, 5, flags | 0x40000000}));
    EXPECT_FALSE(asked.hasAttributes);
    EXPECT_EQ(asked.templateFile, nullptr);
  }
}

TEST_F(PipeRequest, OpenSharesEverythingOnlyInFailoverMode) {
  for (const uint32_t shareMode : {0u, 1u, 7u, 0xFFu}) {
    KivHandle pipe = nullptr;
    EXPECT_EQ(KivSdNamedPipeOpen(nullptr, "local", "name", &pipe, 1, shareMode, 3, 0), KIV_ST_OK);
    EXPECT_EQ(asked.numbers, (std::vector<uint32_t>{1, shareMode, 3, 0x40000000}));
    for (const int mode : {1, 2, 0x80}) {
      const GuardWatch guard(static_cast<uint8_t>(mode));
      EXPECT_EQ(KivSdNamedPipeOpen(nullptr, "local", "name", &pipe, 1, shareMode, 3, 0), KIV_ST_OK);
      EXPECT_EQ(asked.numbers, (std::vector<uint32_t>{1, 7, 3, 0x40000000}));
    }
  }
}

TEST_F(PipeRequest, WaitPassesItsTimeOutOn) {
  for (const uint32_t timeoutMs : {0u, 1u, 50u, 0xFFFFFFFFu}) {
    EXPECT_EQ(KivSdNamedPipeWait(nullptr, "local", "name", timeoutMs), KIV_ST_OK);
    EXPECT_EQ(asked.numbers, std::vector<uint32_t>{timeoutMs});
  }
}

TEST(PipeCall, PassesTheHandleInTheVariableAndNoOverlappedRecord) {
  KivHandle pipe = Handle(0x123456789A);
  char buffer[4] = {};
  uint32_t count = 0;
  const ScriptedImport connect("ConnectNamedPipe", {.result = 1});
  const ScriptedImport disconnect("DisconnectNamedPipe", {.result = 1});
  const ScriptedImport peek("PeekNamedPipe", {.result = 1});
  const ScriptedImport close("CloseHandle", {.result = 1});
  const ScriptedImport read("ReadFile", {.result = 1});
  const ScriptedImport write("WriteFile", {.result = 1});
  static_cast<void>(KivSdNamedPipeConnect(nullptr, &pipe));
  static_cast<void>(KivSdNamedPipeDisconnect(nullptr, &pipe));
  static_cast<void>(KivSdNamedPipePeek(nullptr, &pipe, 4, buffer, &count, &count, &count));
  static_cast<void>(KivSdPipeClose(nullptr, &pipe));
  static_cast<void>(KivSdPipeRead(nullptr, &pipe, buffer, 4, &count));
  static_cast<void>(KivSdPipeWrite(nullptr, &pipe, buffer, 3, &count));
  for (const ScriptedImport* call : {&connect, &disconnect, &peek, &close, &read, &write}) {
    ASSERT_EQ(call->calls().size(), 1u);
    EXPECT_EQ(call->calls()[0][0], 0x123456789Au);
  }
  EXPECT_EQ(connect.calls()[0][1], 0u);
  EXPECT_EQ(peek.calls()[0][1], reinterpret_cast<uintptr_t>(buffer));
  EXPECT_EQ(static_cast<uint32_t>(peek.calls()[0][2]), 4u);
  for (const ScriptedImport* call : {&read, &write}) {
    EXPECT_EQ(call->calls()[0][1], reinterpret_cast<uintptr_t>(buffer));
    EXPECT_EQ(static_cast<uint32_t>(call->calls()[0][2]), call == &read ? 4u : 3u);
    EXPECT_EQ(call->calls()[0][4], 0u);
  }
}

TEST(PipeCall, MakesAnonymousPipesOfTheGivenSizeWithoutAttributes) {
  KivHandle read = nullptr;
  KivHandle write = nullptr;
  const ScriptedImport make("CreatePipe", {.result = 1});
  EXPECT_EQ(KivSdPipeCreate(nullptr, &read, &write, kSentinel), KIV_ST_OK);
  ASSERT_EQ(make.calls().size(), 1u);
  EXPECT_EQ(make.calls()[0][2], 0u);
  EXPECT_EQ(static_cast<uint32_t>(make.calls()[0][3]), kSentinel);
}

// ---- The lease guard ----

// An operation on a handle variable. It succeeds with a variable that holds 8 and fails with
// KIV_ST_ARGUMENT with null.
struct Guarded {
  const char* name;
  uint32_t (*run)(KivHandle* pipe);
  uint32_t runs;
};

char byte;
uint32_t count;

const Guarded kGuarded[] = {
    {"create", [](KivHandle* pipe) { return Create("name", pipe); }, 1},
    {"open",
     [](KivHandle* pipe) {
       return KivSdNamedPipeOpen(nullptr, "server", "name", pipe, 1, 0, 3, 0);
     },
     1},
    {"wait",
     [](KivHandle* pipe) {
       return KivSdNamedPipeWait(nullptr, "server", pipe != nullptr ? "name" : nullptr, 1);
     },
     1},
    {"connect", [](KivHandle* pipe) { return KivSdNamedPipeConnect(nullptr, pipe); }, 1},
    {"peek",
     [](KivHandle* pipe) {
       return KivSdNamedPipePeek(nullptr, pipe, 0, nullptr, nullptr, nullptr, nullptr);
     },
     1},
    {"make",
     [](KivHandle* pipe) {
       KivHandle write = nullptr;
       return KivSdPipeCreate(nullptr, pipe, &write, 0);
     },
     1},
    {"read", [](KivHandle* pipe) { return KivSdPipeRead(nullptr, pipe, &byte, 1, &count); }, 1},
    {"write", [](KivHandle* pipe) { return KivSdPipeWrite(nullptr, pipe, &byte, 1, &count); }, 1},
    {"disconnect", [](KivHandle* pipe) { return KivSdNamedPipeDisconnect(nullptr, pipe); }, 0},
    {"close", [](KivHandle* pipe) { return KivSdPipeClose(nullptr, pipe); }, 0},
};

TEST_F(PipeRequest, RunsTheGuardOnceBeforeTheArgumentChecksExceptForCloseAndDisconnect) {
  const ScriptedImport connect("ConnectNamedPipe", {.result = 0, .error = ERROR_PIPE_CONNECTED});
  const ScriptedImport disconnect("DisconnectNamedPipe", {.result = 1});
  const ScriptedImport peek("PeekNamedPipe", {.result = 1});
  const ScriptedImport make("CreatePipe", {.result = 1});
  const ScriptedImport close("CloseHandle", {.result = 1});
  const ScriptedImport read("ReadFile", {.result = 1});
  const ScriptedImport write("WriteFile", {.result = 1});
  for (const int mode : {0, 1, 0x40, 0xFF}) {
    GuardWatch guard(static_cast<uint8_t>(mode));
    for (const Guarded& operation : kGuarded) {
      SCOPED_TRACE(operation.name);
      KivHandle pipe = Handle(8);
      EXPECT_EQ(operation.run(nullptr), KIV_ST_ARGUMENT);
      EXPECT_EQ(guard.TakeRuns(), mode != 0 ? operation.runs : 0u);
      EXPECT_EQ(operation.run(&pipe), KIV_ST_OK);
      EXPECT_EQ(guard.TakeRuns(), mode != 0 ? operation.runs : 0u);
    }
  }
}

TEST_F(PipeRequest, WithoutAGuardFailoverModeChangesNoOutcome) {
  const GuardWatch guard;
  KivSdSetLeaseGuardAccessFunction(nullptr);
  KivHandle pipe = nullptr;
  EXPECT_EQ(Create("name", &pipe), KIV_ST_OK);
  EXPECT_EQ(pipe, Handle(16));
  EXPECT_EQ(asked.path, kHere + "name");
}

}  // namespace
