// The sockets of named pipes. A socket takes one client: its queue has one place, and the client that
// takes it removes the socket's file.
//
// The address of a socket is too short for the path of its file. It is made under a short name, and
// clients find it through a descriptor of the file.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "os/lnx/pipe_names.h"
#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr int kNoDescriptor = -1;
constexpr int kOnePlace = 0;  // the kernel's queue has one place more than it is asked for

constexpr char kNewSocket[] = "new-socket";  // under the folder's lock there is one at most

constexpr size_t kNumberBytes = 11;  // with the colon

struct SocketFile {
  char text[kNameFileBytes + kNumberBytes];
};

SocketFile FileOf(const NameFile& name, uint32_t number) {
  SocketFile file;
  std::snprintf(file.text, sizeof file.text, "%s:%u", name.text, number);
  return file;
}

// `rest` follows the descriptor.
sockaddr_un AddressThrough(int descriptor, const char* rest) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d%s", descriptor, rest);
  return address;
}

ValueResult<int> MakeSocket(bool isMessage) {
  const int type = (isMessage ? SOCK_SEQPACKET : SOCK_STREAM) | SOCK_CLOEXEC | SOCK_NONBLOCK;
  const int made = socket(AF_UNIX, type, 0);
  return {made != -1, made != -1 ? 0 : static_cast<uint32_t>(errno), made};
}

const sockaddr* Generic(const sockaddr_un* address) {
  return reinterpret_cast<const sockaddr*>(address);
}

// Keeps the descriptor on success, else closes it.
ValueResult<int> Finish(int descriptor, int returned) {
  const Result result = FromErrno(returned);
  if (result.ok) return {true, 0, descriptor};
  close(descriptor);
  return {false, result.error, kNoDescriptor};
}

// Shows the socket under its name when it can be connected to, and not before.
int Publish(const PipeFolder& folder, int made, const char* file) {
  unlinkat(folder.descriptor(), kNewSocket, 0);  // of a process that was killed here
  const sockaddr_un address = AddressThrough(folder.descriptor(), "/new-socket");
  if (bind(made, Generic(&address), sizeof address) != 0) return -1;
  if (listen(made, kOnePlace) != 0) return -1;
  return renameat(folder.descriptor(), kNewSocket, folder.descriptor(), file);
}

int ConnectToFile(const PipeFolder& folder, int made, const char* file) {
  const int found = openat(folder.descriptor(), file, O_PATH | O_NOFOLLOW | O_CLOEXEC);
  if (found == -1) return -1;
  const sockaddr_un address = AddressThrough(found, "");
  const int returned = connect(made, Generic(&address), sizeof address);
  const int error = errno;
  close(found);
  errno = error;
  return returned;
}

}  // namespace

ValueResult<int> ListenAt(const PipeFolder& folder, const NameFile& name, uint32_t number,
                          bool isMessage) {
  const ValueResult<int> made = MakeSocket(isMessage);
  if (!made.ok) return made;
  return Finish(made.value, Publish(folder, made.value, FileOf(name, number).text));
}

ValueResult<int> ConnectTo(const PipeFolder& folder, const NameFile& name, uint32_t number,
                           bool isMessage) {
  const ValueResult<int> made = MakeSocket(isMessage);
  if (!made.ok) return made;
  int returned = ConnectToFile(folder, made.value, FileOf(name, number).text);
  if (returned == -1 && (errno == EAGAIN || errno == ENOENT || errno == ECONNREFUSED)) {
    close(made.value);
    return {false, EBUSY, kNoDescriptor};
  }
  if (returned == 0) {
    RemoveSocket(folder, name, number);
    returned = fcntl(made.value, F_SETFL, 0);  // transfers wait
  }
  return Finish(made.value, returned);
}

bool IsListening(const PipeFolder& folder, const NameFile& name, uint32_t number) {
  return faccessat(folder.descriptor(), FileOf(name, number).text, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

void RemoveSocket(const PipeFolder& folder, const NameFile& name, uint32_t number) {
  unlinkat(folder.descriptor(), FileOf(name, number).text, 0);
}

}  // namespace kiv::os
