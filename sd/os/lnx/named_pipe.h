// One end of a named pipe: its connection, and the messages on it.
//
//   server:  listening -> connected -> disconnected -> listening ...
//   client:  connected
//
// A client connects without the server's help. The server notices at its next operation.
#ifndef KIV_OS_LNX_NAMED_PIPE_H
#define KIV_OS_LNX_NAMED_PIPE_H

#include <pthread.h>

#include "os/lnx/pipe_names.h"
#include "os/named_pipes.h"

namespace kiv::os {

struct NamedPipe {
  pthread_mutex_t mutex;  // guards everything below; taken before the folder of the names
  pthread_cond_t change;  // users has become 0, or isClosing false
  uint32_t users;         // threads that use a descriptor without the mutex
  bool isClosing;         // a thread waits for the users, and then closes a descriptor

  int listener;    // of a listening server, else -1
  int connection;  // of a connected end, else -1

  bool isServer;
  bool isMessage;
  bool readsMessages;  // one message a read, even if bytes remain; else as a stream of bytes
  bool isNoWait;
  uint32_t writeBytes;  // wanted buffer for what this end writes

  // The server's place.
  NameFile name;
  PipeInstance instance;

  // The rest of a message whose beginning was read.
  unsigned char* rest;
  uint32_t restAt;
  uint32_t restBytes;  // 0 if there is none
};

// Makes the record of an end without descriptors. Null if there is no memory.
NamedPipe* MakeNamedPipeRecord();

// Closes and frees everything that the record holds. Nobody uses it any more.
void EndNamedPipe(NamedPipe* pipe);

// Raises the buffer for what the connection's end writes; a size below the system's default has no
// effect. Asks for the sender of every message, which tells an empty message from the end.
void PrepareConnection(int connection, bool isMessage, uint32_t writeBytes);

Result ConnectNamedPipe(NamedPipe* pipe);
Result DisconnectNamedPipe(NamedPipe* pipe);
ValueResult<uint32_t> ReadNamedPipe(NamedPipe* pipe, void* buffer, uint32_t length);
ValueResult<uint32_t> WriteNamedPipe(NamedPipe* pipe, const void* buffer, uint32_t length);
ValueResult<PipeContent> PeekNamedPipe(NamedPipe* pipe, void* buffer, uint32_t sizeBytes);

// ---- Messages, for the transfers ----

// Reads from a connection of messages. The caller holds the mutex. EAGAIN if there is none; EMSGSIZE
// if `length` bytes were read and more remain.
ValueResult<uint32_t> TakeMessage(NamedPipe* pipe, void* buffer, uint32_t length);

// The first message without removing it. The caller holds the mutex.
ValueResult<PipeContent> LookAtMessage(NamedPipe* pipe, void* buffer, uint32_t sizeBytes);

void ForgetRest(NamedPipe* pipe);

}  // namespace kiv::os

#endif
