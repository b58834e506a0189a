// What server and clients say to each other on the control pipe and over shared memory.
//
// On the pipe a message is its length in bytes, 32 bits with the lowest byte first, and then so
// much text:
//
//   0        4
//   | length | text ...
//
// The pipe is one of bytes, not of messages: a client's end cannot be put into message mode
// through the library, and with the length in front neither end depends on a mode. The client
// asks, the server answers, one message each:
//
//   CHUNK         asks for a unit of work     OK 3 (the client's number)
//   STATS         asks for counts             OK rows 63666, cells 9143, clients 2, lost 0, ...
//   QUERY <text>  asks a query; see query.h   OK SUM section=libs: 17833030
//   PUT <text>    changes a cell, named by a member of each dimension, which a number follows;
//                 see put_order.h             OK stored
//   HOG <number>  takes so many MiB of memory, or as many as there are, and gives them back;
//                 see hog.h                   OK refused after 52 MiB; warning seen; totals back
//   BACKUP        copies the server's files while no PUT is carried out; with a number of seconds,
//                 PUTs wait so long after it; see backup.h
//                                             OK backup-1: 19 blocks of cells.pag, 37 records ...
//   SEGMENT       asks for a chunk of the     OK cellhost-32-715 0 (the segment's name, the number
//                 server's segment            of the chunk, from then on the client's)
//   STOP          ends the server             OK stopping
//   BYE           the client leaves           no answer
//
// or ERROR and what to do. A client that goes without BYE is counted as lost. One that asks for a
// chunk again, because it lost track in its own, is given the same anew.
//
// Over its chunk (chunk_channel.h) a client asks the same but SEGMENT and STOP; BYE gives the
// chunk back. The answer has no OK or ERROR in front of it and a final code behind it.
#ifndef CELLHOST_SERVER_PROTOCOL_H
#define CELLHOST_SERVER_PROTOCOL_H

#include <stdint.h>

#include <string_view>

namespace cellhost {

constexpr char kDefaultPipe[] = "cellhost_ctl";

constexpr uint32_t kLengthBytes = 4;
constexpr uint32_t kRequestBytesMax = 8 * 1024;
constexpr uint32_t kReplyBytesMax = 16 * 1024 * 1024;

// Room for a reply of this length is had before the first request, so that what became of a PUT can
// be told also when there is no memory.
constexpr uint32_t kShortReplyBytes = 256;

// The server's buffer for requests. A client has one request under way, so that one always fits.
constexpr uint32_t kRequestBufferBytes = kLengthBytes + kRequestBytesMax;
constexpr uint32_t kReplyBufferBytes = 64 * 1024;  // a longer reply waits for the client to read

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
constexpr std::string_view kStored = "stored";  // what a PUT is told behind OK

// What SEGMENT is told behind ERROR while other clients have all chunks.
constexpr std::string_view kAllTaken = "all chunks are taken; ask again later";

// What became of a request: OK on the pipe if it was done, else ERROR.
enum class FinalCode : uint32_t {
  kDone = 1,
  kBad = 2,      // no such command, or a bad query or order
  kRefused = 3,  // there was no memory for it
};

// In STATS, in front of their counts.
constexpr std::string_view kStatLost = "lost ";

// Takes the first word off a message, with the blank behind it.
inline std::string_view TakeVerb(std::string_view* message) {
  const size_t end = message->find(' ');
  const std::string_view verb = message->substr(0, end);
  message->remove_prefix(end == message->npos ? message->size() : end + 1);
  return verb;
}

// Puts a length into kLengthBytes bytes, or takes it from there.
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
