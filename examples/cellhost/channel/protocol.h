// The protocol between server and clients, on the control pipe and over shared memory.
//
// On the pipe, a message is the length of its text in bytes (32 bits, lowest byte first) and the
// text:
//
//   0        4
//   | length | text ...
//
// The pipe is in byte mode: the library cannot put a client's end into message mode, and with the
// length in front neither end depends on a mode. The client sends a request, the server one reply:
//
//   CHUNK            registers a unit of work          OK 3 (the client's number)
//   STATS            counters of the server            OK rows 63666, cells 9143, clients 2, ...
//   QUERY <query>    see query.h                       OK SUM section=libs: 17833030
//   PUT <order>      changes a cell; put_order.h       OK stored
//   HOG <MiB>        takes memory up to the limit,     OK refused after 52 MiB; warning seen; ...
//                    and frees it; hog.h
//   BACKUP           copies the server's files;        OK backup-1: 19 blocks of cells.pag, ...
//                    backup.h
//   BACKUP <seconds> leaves writes paused so long      OK backup-2: ...
//   SEGMENT          reserves a chunk of the server's  OK cellhost-32-715 0 (segment name, chunk)
//                    segment for the client
//   STOP             ends the server                   OK stopping
//   BYE              the client leaves                 no reply
//
// The reply to a failed request is ERROR and how to correct it. A client that leaves without BYE
// counts as lost. A client that has lost track in its chunk sends SEGMENT again, and receives the
// same chunk, reset.
//
// Over its chunk (chunk_channel.h) a client sends the same requests, except SEGMENT and STOP; BYE
// returns the chunk. The reply has no OK or ERROR in front, and a final code behind.
#ifndef CELLHOST_CHANNEL_PROTOCOL_H
#define CELLHOST_CHANNEL_PROTOCOL_H

#include <stdint.h>

#include <string_view>

namespace cellhost {

constexpr char kDefaultPipe[] = "cellhost_ctl";

constexpr uint32_t kLengthBytes = 4;
constexpr uint32_t kRequestBytesMax = 8 * 1024;
constexpr uint32_t kReplyBytesMax = 16 * 1024 * 1024;

// Each connection reserves room for a reply of this length before the first request. The result of
// a PUT can then be sent even without memory.
constexpr uint32_t kShortReplyBytes = 256;

// The pipe's buffer for requests. A client has one request under way, which therefore always fits.
constexpr uint32_t kRequestBufferBytes = kLengthBytes + kRequestBytesMax;
constexpr uint32_t kReplyBufferBytes = 64 * 1024;  // a longer reply waits until the client reads

constexpr std::string_view kChunk = "CHUNK";
constexpr std::string_view kStats = "STATS";
constexpr std::string_view kQuery = "QUERY";
constexpr std::string_view kPut = "PUT";
constexpr std::string_view kHog = "HOG";
constexpr std::string_view kBackup = "BACKUP";
constexpr std::string_view kSegment = "SEGMENT";
constexpr std::string_view kStop = "STOP";
constexpr std::string_view kBye = "BYE";

constexpr std::string_view kOk = "OK";
constexpr std::string_view kError = "ERROR";
constexpr std::string_view kStored = "stored";  // reply to PUT, after OK

// Reply to SEGMENT, after ERROR, while other clients have all chunks.
constexpr std::string_view kAllTaken = "all chunks are taken; ask again later";

// The result of a request. On the pipe, kDone becomes OK, and the others become ERROR.
enum class FinalCode : uint32_t {
  kDone = 1,
  kBad = 2,      // no such command, or a bad query or order
  kRefused = 3,  // no memory
};

// Label in front of the number of lost clients in the reply to STATS.
constexpr std::string_view kStatLost = "lost ";

// Removes the first word and the blank behind it from a message; returns the word.
inline std::string_view TakeVerb(std::string_view* message) {
  const size_t end = message->find(' ');
  const std::string_view verb = message->substr(0, end);
  message->remove_prefix(end == message->npos ? message->size() : end + 1);
  return verb;
}

// Write a length into kLengthBytes bytes, and read it from there.
inline void WriteLength(uint32_t lengthBytes, char* room) {
  for (uint32_t at = 0; at < kLengthBytes; ++at) {
    room[at] = static_cast<char>(lengthBytes >> (8 * at));
  }
}

inline uint32_t ReadLength(const char* room) {
  uint32_t lengthBytes = 0;
  for (uint32_t at = 0; at < kLengthBytes; ++at) {
    lengthBytes |= uint32_t{static_cast<unsigned char>(room[at])} << (8 * at);
  }
  return lengthBytes;
}

}  // namespace cellhost

#endif
