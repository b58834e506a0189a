// Fault loops of pipes, shared blocks and segments.
#include <string>
#include <utility>

#include "faults/fault_loop.h"
#include "kivsdu/kivsdu.h"

namespace {

using kiv::test::FaultLoop;
using kiv::test::FaultOutcome;
using kiv::test::FaultRun;
using kiv::test::FaultScenario;
using kiv::test::NameOfScenario;
using kiv::test::OwnName;
using kiv::test::Recording;

const std::string kPipeName = OwnName("faults-pipe");
const std::string kBlockName = OwnName("faults-block");
const std::string kSegmentName = OwnName("faults-segment");
const char* const kPipe = kPipeName.c_str();
const char* const kBlock = kBlockName.c_str();
const char* const kSegment = kSegmentName.c_str();
constexpr uint32_t kBlockBytes = 8192;
constexpr uint32_t kReadAndWrite = KIV_ACCESS_READ | KIV_ACCESS_WRITE;
constexpr uint32_t kShortMs = 1;

bool IsPipe(KivHandle handle) {
  return handle != nullptr && reinterpret_cast<intptr_t>(handle) != -1;
}

void Close(KivHandle* pipe) {
  if (IsPipe(*pipe)) KivSdPipeClose(nullptr, pipe);
}

// ---- Anonymous pipes ----

struct Pipe {
  Pipe() { EXPECT_EQ(KivSdPipeCreate(nullptr, &read, &write, 0), KIV_ST_OK); }
  ~Pipe() {
    Close(&read);
    Close(&write);
  }

  KivHandle read = nullptr;
  KivHandle write = nullptr;
};

void CreatePipe(FaultRun& run) {
  KivHandle read = nullptr;
  KivHandle write = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdPipeCreate(ctx, &read, &write, 65536); });
  Close(&read);
  Close(&write);
}
void ClosePipe(FaultRun& run) {
  Pipe pipe;
  run.Call([&](KivSdContext* ctx) { return KivSdPipeClose(ctx, &pipe.read); });
}
void ReadPipe(FaultRun& run) {
  Pipe pipe;
  char byte = 'x';
  uint32_t count = 0;
  KivSdPipeWrite(nullptr, &pipe.write, &byte, 1, &count);
  run.Call([&](KivSdContext* ctx) { return KivSdPipeRead(ctx, &pipe.read, &byte, 1, &count); });
}
void WritePipe(FaultRun& run) {
  Pipe pipe;
  uint32_t count = 0;
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivSdPipeWrite(ctx, &pipe.write, "x", 1, &count); });
  EXPECT_EQ(count, status == KIV_ST_OK ? 1u : 0u);
}

// ---- Named pipes ----

// A server with its client, or only the server.
struct NamedPipe {
  enum class Client { kNone, kConnected, kCame };

  explicit NamedPipe(Client client, uint32_t mode = KIV_PIPE_BYTES) {
    EXPECT_EQ(KivSdNamedPipeCreate(nullptr, kPipe, &server, KIV_PIPE_DUPLEX, mode, 1, 4096, 4096,
                                   kShortMs),
              KIV_ST_OK);
    if (client == Client::kNone) return;
    EXPECT_EQ(KivSdNamedPipeOpen(nullptr, KIV_PIPE_THIS_MACHINE, kPipe, &this->client,
                                 kReadAndWrite, 0, KIV_DISPOSITION_OPEN_EXISTING, 0),
              KIV_ST_OK);
    if (client == Client::kCame) return;
    EXPECT_EQ(KivSdNamedPipeConnect(nullptr, &server), KIV_ST_OK);
  }
  ~NamedPipe() {
    Close(&client);
    Close(&server);
  }

  KivHandle server = nullptr;
  KivHandle client = nullptr;
};

void CreateNamedPipe(FaultRun& run) {
  KivHandle pipe = nullptr;
  run.Call([&](KivSdContext* ctx) {
    return KivSdNamedPipeCreate(ctx, kPipe, &pipe, KIV_PIPE_DUPLEX, KIV_PIPE_BYTES, 1, 4096, 4096,
                                kShortMs);
  });
  Close(&pipe);
}
void OpenNamedPipe(FaultRun& run) {
  const NamedPipe named(NamedPipe::Client::kNone);
  KivHandle pipe = nullptr;
  run.Call([&](KivSdContext* ctx) {
    return KivSdNamedPipeOpen(ctx, KIV_PIPE_THIS_MACHINE, kPipe, &pipe, kReadAndWrite, 0,
                              KIV_DISPOSITION_OPEN_EXISTING, 0);
  });
  Close(&pipe);
}
void WaitForNamedPipe(FaultRun& run) {
  const NamedPipe named(NamedPipe::Client::kNone);
  run.Call([&](KivSdContext* ctx) {
    return KivSdNamedPipeWait(ctx, KIV_PIPE_THIS_MACHINE, kPipe, kShortMs);
  });
}
void ConnectNamedPipe(FaultRun& run) {
  NamedPipe named(NamedPipe::Client::kCame);
  run.Call([&](KivSdContext* ctx) { return KivSdNamedPipeConnect(ctx, &named.server); });
}
void DisconnectNamedPipe(FaultRun& run) {
  NamedPipe named(NamedPipe::Client::kConnected);
  run.Call([&](KivSdContext* ctx) { return KivSdNamedPipeDisconnect(ctx, &named.server); });
}
void PeekNamedPipe(FaultRun& run) {
  NamedPipe named(NamedPipe::Client::kConnected);
  uint32_t count = 0;
  char byte = 'x';
  KivSdPipeWrite(nullptr, &named.client, &byte, 1, &count);
  run.Call([&](KivSdContext* ctx) {
    return KivSdNamedPipePeek(ctx, &named.server, 1, &byte, &count, nullptr, nullptr);
  });
}
void CloseNamedPipe(FaultRun& run) {
  NamedPipe named(NamedPipe::Client::kConnected);
  run.Call([&](KivSdContext* ctx) { return KivSdPipeClose(ctx, &named.server); });
}
void ReadMessage(FaultRun& run) {
  NamedPipe named(NamedPipe::Client::kConnected, KIV_PIPE_MESSAGES | KIV_PIPE_READ_MESSAGES);
  uint32_t count = 0;
  char byte = 'x';
  KivSdPipeWrite(nullptr, &named.client, &byte, 1, &count);
  run.Call([&](KivSdContext* ctx) { return KivSdPipeRead(ctx, &named.server, &byte, 1, &count); });
}
void WriteMessage(FaultRun& run) {
  NamedPipe named(NamedPipe::Client::kConnected, KIV_PIPE_MESSAGES | KIV_PIPE_READ_MESSAGES);
  uint32_t count = 0;
  run.Call([&](KivSdContext* ctx) { return KivSdPipeWrite(ctx, &named.client, "x", 1, &count); });
}

// ---- Shared blocks ----

struct Block {
  Block() {
    uint32_t id = 0;
    EXPECT_EQ(KivSdSharedMemAlloc(nullptr, kBlock, kBlockBytes,
                                  KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                                  KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping, &id, &view),
              KIV_ST_OK);
  }
  ~Block() { Free(); }

  void Free() {
    if (mapping != nullptr) KivSdSharedMemFree(nullptr, mapping, view);
    mapping = nullptr;
  }

  KivHandle mapping = nullptr;
  void* view = nullptr;
};

void Map(FaultRun& run, uint32_t openFlags) {
  KivHandle mapping = nullptr;
  void* view = nullptr;
  uint32_t id = 0;
  const uint32_t status = run.Call([&](KivSdContext* ctx) {
    return KivSdSharedMemAlloc(ctx, kBlock, kBlockBytes, openFlags, KIV_SHAREDMEM_PAGES_READ_WRITE,
                               &mapping, &id, &view);
  });
  if (status == KIV_ST_OK) {
    KivSdSharedMemFree(nullptr, mapping, view);
  } else {
    EXPECT_EQ(mapping, nullptr);
    EXPECT_EQ(view, nullptr);
  }
}
void CreateBlock(FaultRun& run) { Map(run, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE); }
void OpenBlock(FaultRun& run) {
  const Block named;
  Map(run, KIV_SHAREDMEM_WRITE);
}
void FreeBlock(FaultRun& run) {
  Block block;
  run.Call([&](KivSdContext* ctx) { return KivSdSharedMemFree(ctx, block.mapping, block.view); });
  block.mapping = nullptr;  // both steps were tried
}

// ---- Segments ----

struct Segment {
  explicit Segment(uint32_t kind) {
    uint32_t id = 0;
    void* view = nullptr;
    EXPECT_EQ(
        KivFindShareMemSeg(nullptr, kSegment, kind, &list, 1, 0, 0, nullptr, nullptr, &segment),
        KIV_ST_OK);
    EXPECT_EQ(
        KivCreateSharedMemSeg(nullptr, kSegment, kind, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                              KIV_SHAREDMEM_PAGES_READ_WRITE, segment, kShortMs, &id, &view),
        KIV_ST_OK);
    KivSetSharedMemSegBuffer(nullptr, segment, view);
  }
  ~Segment() {
    if (list != nullptr) KivDeleteSharedMemSeg(nullptr, list);
  }

  KivSharedMemSeg* list = nullptr;
  KivSharedMemSeg* segment = nullptr;
};

void FindSegment(FaultRun& run) {
  KivSharedMemSeg* list = nullptr;
  KivSharedMemSeg* segment = nullptr;
  run.Call([&](KivSdContext* ctx) {
    return KivFindShareMemSeg(ctx, kSegment, 1, &list, 1, 0, 0, nullptr, nullptr, &segment);
  });
  KivDeleteSharedMemSeg(nullptr, list);
}
void CreateSegment(FaultRun& run) {
  KivSharedMemSeg* list = nullptr;
  KivSharedMemSeg* segment = nullptr;
  uint32_t id = 0;
  void* view = nullptr;
  KivFindShareMemSeg(nullptr, kSegment, 1, &list, 1, 0, 0, nullptr, nullptr, &segment);
  const uint32_t status = run.Call([&](KivSdContext* ctx) {
    return KivCreateSharedMemSeg(ctx, kSegment, 1, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                                 KIV_SHAREDMEM_PAGES_READ_WRITE, segment, kShortMs, &id, &view);
  });
  if (status == KIV_ST_OK) KivSetSharedMemSegBuffer(nullptr, segment, view);
  KivDeleteSharedMemSeg(nullptr, list);
}
void DeleteSegments(FaultRun& run) {
  Segment end(1);
  KivSharedMemSeg* list = std::exchange(end.list, nullptr);
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivDeleteSharedMemSeg(ctx, list); });
  // A descriptor whose area was not freed stays allocated; its set is closed.
  if (status == KIV_ST_OK) return;
  list->semaphores = nullptr;
  list->mapping = nullptr;
  KivDeleteSharedMemSeg(nullptr, list);
}
void DeleteSegment(FaultRun& run) {
  Segment end(1);
  run.Call([&](KivSdContext* ctx) { return KivDeleteSingleSharedMemSeg(ctx, end.segment); });
  end.segment->semaphores = nullptr;
  end.segment->mapping = nullptr;
}
void TakeChunk(FaultRun& run) {
  Segment end(1);
  int32_t chunk = KIV_CHUNK_NONE;
  run.Call([&](KivSdContext* ctx) { return KivGetSharedMemChunk(ctx, end.segment, &chunk); });
}
void ReturnChunk(FaultRun& run) {
  Segment end(1);
  int32_t chunk = KIV_CHUNK_NONE;
  KivGetSharedMemChunk(nullptr, end.segment, &chunk);
  run.Call([&](KivSdContext* ctx) { return KivPutSharedMemChunk(ctx, end.segment, chunk); });
}
void WriteChunk(FaultRun& run) {
  Segment end(1);
  run.Call([&](KivSdContext* ctx) {
    return KivWriteSharedMemChunk(ctx, end.segment, 0, 3, 1, 1, "abc");
  });
}
void WriteCode(FaultRun& run) {
  Segment end(1);
  run.Call([&](KivSdContext* ctx) { return KivWriteSharedMemChunkCode(ctx, end.segment, 0, 7); });
}
void ReadChunk(FaultRun& run) {
  Segment end(1);
  const Segment peer(0);
  char text[4] = {};
  KivWriteSharedMemChunk(nullptr, peer.segment, 0, 3, 1, 1, "abc");
  run.Call([&](KivSdContext* ctx) {
    return KivReadSharedMemChunk(ctx, end.segment, 0, 3, 0, nullptr, text);
  });
}
void ReadCode(FaultRun& run) {
  Segment end(1);
  const Segment peer(0);
  uint32_t code = 0;
  KivWriteSharedMemChunkCode(nullptr, peer.segment, 0, 7);
  run.Call(
      [&](KivSdContext* ctx) { return KivReadSharedMemChunkCode(ctx, end.segment, 0, &code); });
}

const FaultScenario kScenarios[] = {
    {"KivSdPipeCreate", CreatePipe, {{"CreatePipe", KIV_ST_PIPE_CREATE}}},
    {"KivSdPipeClose", ClosePipe, {{"CloseHandle", KIV_ST_PIPE_CLOSE}}},
    {"KivSdPipeRead",
     ReadPipe,
     {{"ReadFile", KIV_ST_PIPE_READ}, {"ReadFile", KIV_ST_PIPE_CLOSED, ENODATA}}},
    {"KivSdPipeWrite", WritePipe, {{"WriteFile", KIV_ST_PIPE_WRITE}}},
    {"KivSdNamedPipeCreate",
     CreateNamedPipe,
     {{"CreateNamedPipeA", KIV_ST_PIPE_CREATE_NAMED},
      {"InitializeSecurityDescriptor", KIV_ST_PIPE_CREATE_NAMED},
      {"SetSecurityDescriptorDacl", KIV_ST_PIPE_CREATE_NAMED},
      {"malloc", KIV_ST_OUT_OF_MEMORY},
      {"malloc", KIV_ST_PIPE_CREATE_NAMED}}},
    {"KivSdNamedPipeOpen",
     OpenNamedPipe,
     {{"CreateFileA", KIV_ST_PIPE_OPEN},
      {"malloc", KIV_ST_OUT_OF_MEMORY},
      {"malloc", KIV_ST_PIPE_OPEN}}},
    {"KivSdNamedPipeWait",
     WaitForNamedPipe,
     {{"WaitNamedPipeA", KIV_ST_PIPE_WAIT}, {"malloc", KIV_ST_OUT_OF_MEMORY}}},
    {"KivSdNamedPipeConnect", ConnectNamedPipe, {{"ConnectNamedPipe", KIV_ST_PIPE_CONNECT}}},
    {"KivSdNamedPipeDisconnect",
     DisconnectNamedPipe,
     {{"DisconnectNamedPipe", KIV_ST_PIPE_DISCONNECT}}},
    {"KivSdNamedPipePeek", PeekNamedPipe, {{"PeekNamedPipe", KIV_ST_PIPE_PEEK}}},
    {"KivSdPipeClose_named", CloseNamedPipe, {{"CloseHandle", KIV_ST_PIPE_CLOSE}}},
    {"KivSdPipeRead_message", ReadMessage, {{"ReadFile", KIV_ST_PIPE_READ}}},
    {"KivSdPipeWrite_message", WriteMessage, {{"WriteFile", KIV_ST_PIPE_WRITE}}},
    {"KivSdSharedMemAlloc_create",
     CreateBlock,
     {{"CreateFileMappingA", KIV_ST_SHARED_MEM_ALLOC},
      {"MapViewOfFile", KIV_ST_SHARED_MEM_ALLOC},
      {"CloseHandle", KIV_ST_SHARED_MEM_ALLOC},
      {"malloc", KIV_ST_SHARED_MEM_ALLOC}}},
    {"KivSdSharedMemAlloc_open",
     OpenBlock,
     {{"OpenFileMappingA", KIV_ST_SHARED_MEM_ALLOC},
      {"MapViewOfFile", KIV_ST_SHARED_MEM_ALLOC},
      {"CloseHandle", KIV_ST_SHARED_MEM_ALLOC},
      {"malloc", KIV_ST_SHARED_MEM_ALLOC}}},
    {"KivSdSharedMemFree",
     FreeBlock,
     {{"UnmapViewOfFile", KIV_ST_SHARED_MEM_FREE}, {"CloseHandle", KIV_ST_SHARED_MEM_FREE}}},
    {"KivFindShareMemSeg", FindSegment, {{"malloc", KIV_ST_OUT_OF_MEMORY}}},
    {"KivCreateSharedMemSeg",
     CreateSegment,
     {{"malloc", KIV_ST_OUT_OF_MEMORY, FaultOutcome::kAny, Recording::kNothing},
      {"CreateSemaphoreA", KIV_ST_SEM_CREATE, FaultOutcome::kAny, Recording::kNothing},
      {"CreateFileMappingA", KIV_ST_SHARED_MEM_ALLOC},
      {"MapViewOfFile", KIV_ST_SHARED_MEM_ALLOC},
      {"CloseHandle", KIV_ST_SHARED_MEM_ALLOC},
      {"malloc", KIV_ST_SHARED_MEM_ALLOC}}},
    {"KivDeleteSharedMemSeg",
     DeleteSegments,
     {{"UnmapViewOfFile", KIV_ST_SHARED_MEM_FREE},
      {"CloseHandle", KIV_ST_SHARED_MEM_FREE},
      {"CloseHandle", KIV_ST_OK}}},
    {"KivDeleteSingleSharedMemSeg",
     DeleteSegment,
     {{"UnmapViewOfFile", KIV_ST_SHARED_MEM_FREE},
      {"CloseHandle", KIV_ST_SHARED_MEM_FREE},
      {"CloseHandle", KIV_ST_OK}}},
    {"KivGetSharedMemChunk",
     TakeChunk,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}, {"ReleaseSemaphore", KIV_ST_SEM_CLEAR}},
     {},
     Recording::kNothing},
    {"KivPutSharedMemChunk",
     ReturnChunk,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}, {"ReleaseSemaphore", KIV_ST_SEM_CLEAR}},
     {},
     Recording::kNothing},
    {"KivWriteSharedMemChunk",
     WriteChunk,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}, {"ReleaseSemaphore", KIV_ST_SEM_CLEAR}},
     {},
     Recording::kNothing},
    {"KivWriteSharedMemChunkCode",
     WriteCode,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}, {"ReleaseSemaphore", KIV_ST_SEM_CLEAR}},
     {},
     Recording::kNothing},
    {"KivReadSharedMemChunk",
     ReadChunk,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}, {"ReleaseSemaphore", KIV_CHUNK_NOT_GIVEN}},
     {},
     Recording::kNothing},
    {"KivReadSharedMemChunkCode",
     ReadCode,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}, {"ReleaseSemaphore", KIV_ST_SEM_CLEAR}},
     {},
     Recording::kNothing},
};

INSTANTIATE_TEST_SUITE_P(Ipc, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
