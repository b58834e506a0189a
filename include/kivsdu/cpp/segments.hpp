// Shared memory segments: messages between two processes. segment.h states the format, the order of
// the calls and what a peer can do.
#ifndef KIVSDU_CPP_SEGMENTS_HPP
#define KIVSDU_CPP_SEGMENTS_HPP

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "../segment.h"
#include "error.hpp"
#include "objects.hpp"

namespace kivsdu {

// One end of a segment. One thread sets it up and ends it. Its chunks end before it does.
class Segment {
 public:
  // Makes the segment, or joins the one of this name.
  //
  //   kind     0 or 1; the two ends differ
  //   timeout  of every wait for the peer: the only way to notice a peer that died
  Segment(const char* name, uint32_t kind, std::chrono::milliseconds timeout) {
    ErrorCode error;
    Make(name, kind, timeout, error);
    if (error) Drop();
    ThrowIfFailed(error, "set up a segment");
  }
  Segment(const char* name, uint32_t kind, std::chrono::milliseconds timeout,
          ErrorCode& error) noexcept {
    Make(name, kind, timeout, error);
  }
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;
  ~Segment() { Drop(); }

  // Releases the chunk lock of a peer that died while it took or returned a chunk. Do this only if
  // that has timed out and the peer is dead.
  void ReleaseChunkLock() {
    ErrorCode error;
    ReleaseChunkLock(error);
    ThrowIfFailed(error, "release the chunk lock");
  }
  void ReleaseChunkLock(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdShSemSetClear(ctx, 0, segment_->semaphores);
    });
  }

  KivSharedMemSeg* Get() const noexcept { return segment_; }

 private:
  void Make(const char* name, uint32_t kind, std::chrono::milliseconds timeout,
            ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivFindShareMemSeg(ctx, name, kind, &list_, 1, 0, 0, nullptr, nullptr, &segment_);
    });
    if (error) return;
    uint32_t mappingId = 0;
    void* view = nullptr;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivCreateSharedMemSeg(ctx, name, kind, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                                   KIV_SHAREDMEM_PAGES_READ_WRITE, segment_, detail::Limit(timeout),
                                   &mappingId, &view);
    });
    if (!error) KivSetSharedMemSegBuffer(nullptr, segment_, view);
  }
  void Drop() noexcept {
    if (list_ != nullptr) KivDeleteSharedMemSeg(nullptr, std::exchange(list_, nullptr));
  }

  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;
};

// A chunk of a segment: a channel with one writer and one reader in each process.
//
// A wait for the peer that times out fails with KIV_ST_SEM_TIMEOUT, which is std::errc::timed_out.
class Chunk {
 public:
  Chunk() noexcept = default;

  // Takes the lowest chunk that this process has not taken, and returns it when the owner ends. With
  // several clients the server takes the chunks and tells each client its index.
  static Chunk Take(Segment& segment) {
    ErrorCode error;
    Chunk chunk = Take(segment, error);
    ThrowIfFailed(error, "take a chunk");
    return chunk;
  }
  // If all chunks are taken there is no error, but IsOpen is false.
  static Chunk Take(Segment& segment, ErrorCode& error) noexcept {
    int32_t index = KIV_CHUNK_NONE;
    error = Outcome(KivGetSharedMemChunk(nullptr, segment.Get(), &index));
    const bool isTaken = index != KIV_CHUNK_NONE;
    return isTaken ? Chunk(segment.Get(), index, true) : Chunk();
  }

  // Uses a chunk that the peer has taken for this process.
  static Chunk Of(Segment& segment, int32_t index) noexcept {
    return Chunk(segment.Get(), index, false);
  }

  Chunk(Chunk&& other) noexcept
      : segment_(std::exchange(other.segment_, nullptr)),
        index_(other.index_),
        isTaken_(std::exchange(other.isTaken_, false)) {}
  Chunk& operator=(Chunk&& other) noexcept {
    std::swap(segment_, other.segment_);
    std::swap(index_, other.index_);
    std::swap(isTaken_, other.isTaken_);
    return *this;
  }
  ~Chunk() {
    if (isTaken_) KivPutSharedMemChunk(nullptr, segment_, index_);
  }

  bool IsOpen() const noexcept { return segment_ != nullptr; }
  int32_t Index() const noexcept { return index_; }

  // ---- Writing ----

  // Sends a message, or several if it is longer than KIV_SEGMENT_PAYLOAD_BYTES.
  void Write(const void* data, uint32_t length) { Check(Send(data, length), "write a message"); }
  void Write(const void* data, uint32_t length, ErrorCode& error) noexcept {
    error = Send(data, length);
  }

  // Sends a text with its terminating zero.
  void WriteText(const char* text) { Check(SendText(text), "write a text"); }
  void WriteText(const char* text, ErrorCode& error) noexcept { error = SendText(text); }

  // Sends a code other than 0 without data.
  void WriteCode(uint32_t code) { Check(SendCode(code), "write a code"); }
  void WriteCode(uint32_t code, ErrorCode& error) noexcept { error = SendCode(code); }

  // ---- Reading ----

  // Reads bytes of one or more messages, no more than these hold. Returns the code that ended the
  // read; 0 if all bytes were read.
  uint32_t Read(void* buffer, uint32_t length) {
    ErrorCode error;
    const uint32_t code = Read(buffer, length, error);
    ThrowIfFailed(error, "read a message");
    return code;
  }
  uint32_t Read(void* buffer, uint32_t length, ErrorCode& error) noexcept {
    uint32_t code = 0;
    error = Outcome(KivReadSharedMemChunk(nullptr, segment_, index_, length, 0, &code, buffer));
    return code;
  }

  // Reads a text up to its zero, or to the end of the message if it has none. Fails with
  // KIV_CHUNK_OVERRUN if the peer announces more bytes than its half holds: drop such a peer.
  //
  //   code  receives the message's code, 0 for none. Without it, a message that carries only a code
  //         cannot be told from an empty text
  std::string ReadText(uint32_t* code = nullptr) {
    ErrorCode error;
    std::string text = ReadText(error, code);
    ThrowIfFailed(error, "read a text");
    return text;
  }
  std::string ReadText(ErrorCode& error, uint32_t* code = nullptr) {
    char text[KIV_SEGMENT_HALF_BYTES + 1] = {};
    if (code != nullptr) *code = 0;
    error = Outcome(KivReadSharedMemChunk(nullptr, segment_, index_, 0, 1, code, text));
    const KivSharedMemTransfer& state = segment_->reading[index_];
    if (!error && state.lengthBytes > KIV_SEGMENT_HALF_BYTES - state.offset) {
      error = Outcome(KIV_CHUNK_OVERRUN);
    }
    return error ? std::string() : std::string(text);
  }

  // Reads a message of which only the code counts. It must have no data.
  uint32_t ReadCode() {
    ErrorCode error;
    const uint32_t code = ReadCode(error);
    ThrowIfFailed(error, "read a code");
    return code;
  }
  uint32_t ReadCode(ErrorCode& error) noexcept {
    uint32_t code = 0;
    error = Outcome(KivReadSharedMemChunkCode(nullptr, segment_, index_, &code));
    return code;
  }

  // ---- After a dead peer ----

  // Prepares the chunk for the next peer, whatever state the last one left. Nobody else may use the
  // chunk meanwhile.
  void Reset() {
    ErrorCode error;
    Reset(error);
    ThrowIfFailed(error, "reset a chunk");
  }
  void Reset(ErrorCode& error) noexcept {
    segment_->reading[index_] = {};
    segment_->writing[index_] = {};
    const int first = 4 * index_ + 1;
    error = EmptyHalf(static_cast<uint16_t>(first));
    if (!error) error = EmptyHalf(static_cast<uint16_t>(first + 2));
  }

 private:
  Chunk(KivSharedMemSeg* segment, int32_t index, bool isTaken) noexcept
      : segment_(segment), index_(index), isTaken_(isTaken) {}

  // Operations on chunks record no OS error.
  static ErrorCode Outcome(uint32_t status) noexcept {
    if (status == KIV_ST_OK) return {};
    return {status, 0, OsErrorKind::kSystem};
  }
  static void Check(const ErrorCode& error, const char* action) { ThrowIfFailed(error, action); }

  ErrorCode Send(const void* data, uint32_t length) noexcept {
    return Outcome(KivWriteSharedMemChunk(nullptr, segment_, index_, length, 1, 1, data));
  }
  ErrorCode SendText(const char* text) noexcept {
    return Send(text, static_cast<uint32_t>(std::strlen(text)) + 1);
  }
  ErrorCode SendCode(uint32_t code) noexcept {
    return Outcome(KivWriteSharedMemChunkCode(nullptr, segment_, index_, code));
  }

  // Makes a half empty and not full, whatever it was.
  //
  //   full  the member of the half's "full"; that of its "empty" is the next
  ErrorCode EmptyHalf(uint16_t full) noexcept {
    const auto empty = static_cast<uint16_t>(full + 1);
    KivSdShSemSetRequest(nullptr, full, segment_->semaphores, 0);
    KivSdShSemSetRequest(nullptr, empty, segment_->semaphores, 0);
    return detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdShSemSetClear(ctx, empty, segment_->semaphores);
    });
  }

  KivSharedMemSeg* segment_ = nullptr;
  int32_t index_ = KIV_CHUNK_NONE;
  bool isTaken_ = false;
};

}  // namespace kivsdu

#endif
