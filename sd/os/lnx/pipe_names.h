// The names of named pipes, shared by the processes of a user.
//
//   the user's private folder     locked by every step here
//       p-<name>                  its first instance writes what all instances have in common;
//                                 byte n is locked as long as instance n exists
//       p-<name>:<n>              the socket of instance n while it waits for a client
//
// A lock ends with its process, however that ends. A name whose bytes are all free does not exist:
// its files are garbage, which each process removes when it makes its first pipe.
//
// Any process of the user can write the files. What is read from them is checked.
#ifndef KIV_OS_LNX_PIPE_NAMES_H
#define KIV_OS_LNX_PIPE_NAMES_H

#include "os/lnx/name_folder.h"

namespace kiv::os {

constexpr uint32_t kUnlimitedPipes = 255;  // a maximum that means as many as the system can hold
constexpr uint32_t kMaxPipeInstance = 65535;

// What all instances of a name have in common. The first one decides.
struct PipeTraits {
  uint32_t access;     // 1 from client to server, 2 from server to client, 3 both
  uint32_t isMessage;  // 1 for a pipe of messages
  uint32_t maximumInstances;
  uint32_t clientBytes;  // buffer for what a client writes
  uint32_t defaultTimeoutMs;
};

// Translates the path of a pipe to its file. EHOSTUNREACH for a pipe of another machine.
Result FileOfPipe(const char* path, NameFile* file);

// The locked folder. Locking waits for other processes, which hold the lock for microseconds.
class PipeFolder {
 public:
  PipeFolder();
  ~PipeFolder();
  PipeFolder(const PipeFolder&) = delete;
  PipeFolder& operator=(const PipeFolder&) = delete;

  const Result& result() const { return result_; }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
  Result result_;
};

// An instance's place. The descriptor holds its lock.
struct PipeInstance {
  int file;
  uint32_t number;
};

// Takes a place for a new instance. EBUSY if the maximum is reached; EACCES if the traits differ from
// the name's, or if `onlyFirst` and the name exists.
ValueResult<PipeInstance> TakeInstance(const PipeFolder& folder, const NameFile& name,
                                       const PipeTraits& traits, bool onlyFirst);

// Gives the place up, and the name with its last instance.
void LeaveInstance(const PipeFolder& folder, const NameFile& name, const PipeInstance& instance);

// The traits of a name that exists, else ENOENT.
struct ExistingPipe {
  int file;  // the caller closes it
  PipeTraits traits;
};
ValueResult<ExistingPipe> FindPipe(const PipeFolder& folder, const NameFile& name);

// The first instance that exists after the given number; 0 if there is none.
uint32_t NextInstance(int file, uint32_t after);

// ---- Sockets ----

// Makes the socket of an instance that waits for one client.
ValueResult<int> ListenAt(const PipeFolder& folder, const NameFile& name, uint32_t number,
                          bool isMessage);

// Connects to the instance and makes sure that nobody else does. EBUSY if it does not wait.
ValueResult<int> ConnectTo(const PipeFolder& folder, const NameFile& name, uint32_t number,
                           bool isMessage);

// Whether an instance waits for a client.
bool IsListening(const PipeFolder& folder, const NameFile& name, uint32_t number);

void RemoveSocket(const PipeFolder& folder, const NameFile& name, uint32_t number);

}  // namespace kiv::os

#endif
