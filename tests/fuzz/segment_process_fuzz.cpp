// The input directs a hostile process at the other end of a shared memory segment. That process
// writes into all halves of the area, and takes and gives the semaphores of the segment at will; some
// of its steps run while this process works. An operation may touch only its own half of the area;
// the rest is poisoned.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "fuzz/input.h"
#include "fuzz/poison.h"
#include "fuzz/segment_operations.h"
#include "kivsdu/kivsdu.h"

namespace {

using kiv::fuzz::Check;
using kiv::fuzz::Input;
using kiv::fuzz::Poison;
using kiv::fuzz::Unpoison;

constexpr int kMaxOperations = 60;
constexpr int32_t kChunks = KIV_SEGMENT_CHUNKS;
constexpr uint32_t kMembers = 4 * KIV_SEGMENT_CHUNKS + 1;
constexpr uint32_t kMembersOfChunk = 4;
constexpr size_t kMostStepBytes = 64;
constexpr uint32_t kPeersKind = 0;
constexpr uint32_t kOwnKind = 1;

// ---- The segment ----

class End {
 public:
  End(const std::string& name, uint32_t kind) {
    uint32_t id = 0;
    void* view = nullptr;
    Check(KivFindShareMemSeg(nullptr, name.c_str(), kind, &list_, 1, 0, 0, nullptr, nullptr,
                             &segment_) == KIV_ST_OK,
          "a descriptor can be made");
    Check(KivCreateSharedMemSeg(
              nullptr, name.c_str(), kind, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
              KIV_SHAREDMEM_PAGES_READ_WRITE, segment_, 0, &id, &view) == KIV_ST_OK,
          "a segment can be made");
    KivSetSharedMemSegBuffer(nullptr, segment_, view);
  }
  ~End() { KivDeleteSharedMemSeg(nullptr, list_); }
  End(const End&) = delete;
  End& operator=(const End&) = delete;

  KivSharedMemSeg* get() const { return segment_; }
  unsigned char* area() const { return static_cast<unsigned char*>(segment_->buffer); }

  bool Take(uint32_t member) const {
    return KivSdShSemSetRequest(nullptr, static_cast<uint16_t>(member), segment_->semaphores, 0) ==
           KIV_ST_OK;
  }
  void Give(uint32_t member) const {
    KivSdShSemSetClear(nullptr, static_cast<uint16_t>(member), segment_->semaphores);
  }

 private:
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;
};

// ---- The hostile process ----

struct Step {
  uint8_t chunk;
  uint8_t size;
  uint8_t bytes[kMostStepBytes];
};

void CarryOut(const End& end, const Step& step) {
  Input input(step.bytes, step.size);
  unsigned char* chunk = end.area() + step.chunk * 2 * KIV_SEGMENT_HALF_BYTES;
  while (!input.IsAtEnd()) {
    const uint8_t what = input.Byte();
    const uint32_t member = kMembersOfChunk * step.chunk + 1 + what / 4 % kMembersOfChunk;
    unsigned char* half = chunk + (what & 0x40 ? KIV_SEGMENT_HALF_BYTES : 0);
    switch (what % 4) {
      case 0:
        end.Give(what >= 0xF0 ? 0 : member);
        break;
      case 1:
        static_cast<void>(end.Take(what >= 0xF0 ? 0 : member));
        break;
      case 2:
        input.Fill(half, 8);  // the header: a code and a length
        break;
      default:
        input.Fill(half + (input.Byte() * 8u) % (KIV_SEGMENT_HALF_BYTES - 16), 16);
    }
  }
}

// Carries out steps until the other end of the channel is closed.
[[noreturn]] void BeHostile(const std::string& name, int channel) {
  {
    const End end(name, kPeersKind);
    Step step;
    const char done = 1;
    while (recv(channel, &step, sizeof step, MSG_WAITALL) == sizeof step) {
      CarryOut(end, step);
      if (send(channel, &done, 1, MSG_NOSIGNAL) != 1) break;
    }
  }
  _exit(0);
}

// ---- This process ----

class Scene {
 public:
  Scene() : end_(Name(), kOwnKind) {
    int channel[2];
    Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, channel) == 0, "a channel");
    process_ = fork();
    if (process_ == 0) {
      close(channel[0]);
      BeHostile(Name(parent_), channel[1]);
    }
    Check(process_ != -1, "a second process");
    close(channel[1]);
    channel_ = channel[0];
  }
  ~Scene() {
    close(channel_);
    waitpid(process_, nullptr, 0);
  }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // Returns the segment to its first state.
  void Restore() {
    Unpoison(end_.area(), KIV_SEGMENT_AREA_BYTES);
    std::memset(end_.area(), 0xEE, KIV_SEGMENT_AREA_BYTES);
    for (uint32_t member = 0; member < kMembers; ++member) {
      while (end_.Take(member)) {
      }
      const bool isFirst = member == 0 || member % 2 == 0;
      if (isFirst) end_.Give(member);
    }
    std::memset(end_.get()->reading, 0, sizeof end_.get()->reading);
    std::memset(end_.get()->writing, 0, sizeof end_.get()->writing);
    end_.get()->takenMask = 0;
  }

  void Operate(Input* input, int32_t chunk) {
    const uint8_t what = input->Byte();
    SendStep(input, static_cast<uint8_t>(chunk));
    const bool meanwhile = what % 2 != 0;
    if (!meanwhile) AwaitStep();
    if (what >= 0xE0) {
      TakeAndReturnChunk();
    } else {
      kiv::fuzz::OperateOnChunk(input, end_.get(), chunk,
                                [&](bool reading) { Expose(chunk, reading); });
    }
    if (meanwhile) AwaitStep();
    Unpoison(end_.area(), KIV_SEGMENT_AREA_BYTES);
    // Otherwise a latched chunk would stay latched for the rest of the input.
    if ((what & 0x40) != 0) end_.get()->reading[chunk].code = end_.get()->writing[chunk].code = 0;
  }

 private:
  static std::string Name(pid_t owner = getpid()) { return "kivsdu-fuzz-" + std::to_string(owner); }

  void SendStep(Input* input, uint8_t chunk) const {
    Step step = {chunk, static_cast<uint8_t>(input->Byte() % (kMostStepBytes + 1)), {}};
    input->Fill(step.bytes, step.size);
    Check(send(channel_, &step, sizeof step, MSG_NOSIGNAL) == sizeof step, "a step is sent");
  }

  void AwaitStep() const {
    char done = 0;
    ssize_t count;
    do {
      count = recv(channel_, &done, 1, 0);
    } while (count == -1 && errno == EINTR);  // the fuzzer has a timer
    Check(count == 1, "the second process carries a step out");
  }

  void TakeAndReturnChunk() {
    int32_t taken = KIV_CHUNK_NONE;
    const uint32_t status = KivGetSharedMemChunk(nullptr, end_.get(), &taken);
    Check(IsChunkStatus(status), "the status of taking a chunk");
    if (status != KIV_ST_OK) return;
    Check(taken >= 0 && taken < kChunks, "a chunk that was taken exists");
    Check(IsChunkStatus(KivPutSharedMemChunk(nullptr, end_.get(), taken)),
          "the status of giving a chunk back");
  }

  static bool IsChunkStatus(uint32_t status) {
    return status == KIV_ST_OK || status == KIV_ST_SEM_TIMEOUT || status == KIV_ST_SEM_CLEAR;
  }

  // Unpoisons the half that the next operation may touch, and nothing else.
  void Expose(int32_t chunk, bool reading) const {
    unsigned char* first = end_.area() + static_cast<size_t>(chunk) * 2 * KIV_SEGMENT_HALF_BYTES;
    Poison(end_.area(), KIV_SEGMENT_AREA_BYTES);
    Unpoison(first + (reading ? KIV_SEGMENT_HALF_BYTES : 0), KIV_SEGMENT_HALF_BYTES);
  }

  const pid_t parent_ = getpid();
  const End end_;
  pid_t process_ = 0;
  int channel_ = -1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  static Scene scene;
  Input input(bytes, count);
  const int32_t chunk = input.Byte() % kChunks;
  scene.Restore();
  for (int i = 0; i < kMaxOperations && !input.IsAtEnd(); ++i) scene.Operate(&input, chunk);
  return 0;
}
