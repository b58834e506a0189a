// The input is a hostile client of a named pipe: a bare socket that sends bytes of any sizes, empty
// messages, descriptors, closes early, resets the connection and comes again. The server reads,
// peeks, writes and disconnects in between. What the server reads must be what the client sent, in
// its order and with its boundaries.
//
// The server never waits: it is in no-wait mode.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "kivsdu/kivsdu.h"
#include "os/lnx/pipe_names.h"

namespace {

using kiv::fuzz::Check;
using kiv::fuzz::Input;

constexpr int kMaxOperations = 200;
constexpr int kNoDescriptor = -1;
constexpr uint32_t kMostRead = 70'000;

uint32_t SizeOf(Input* input) {
  const uint32_t size = input->Byte();
  return size < 192 ? size : size * input->Byte();
}

const std::string& PipeName() {
  static const std::string name = "kivsdu-fuzz-" + std::to_string(getpid());
  return name;
}

// ---- The client ----

// Connects to the server's first instance as a foreign program could.
class Client {
 public:
  explicit Client(bool isMessage) : isMessage_(isMessage) {}
  ~Client() { Close(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool isConnected() const { return socket_ != kNoDescriptor; }

  void Connect() {
    if (isConnected()) return;
    const kiv::os::PipeFolder folder;
    kiv::os::NameFile file = {};
    const std::string path = "\\\\.\\PIPE\\" + PipeName();
    Check(kiv::os::FileOfPipe(path.c_str(), &file).ok, "a pipe has a file");
    const auto connected = kiv::os::ConnectTo(folder, file, 1, isMessage_);
    if (!connected.ok) return;
    socket_ = connected.value;
    fcntl(socket_, F_SETFL, O_NONBLOCK);
  }

  // Whether all of it was sent. A stream may take a part: `sent` receives its size.
  bool Send(const std::string& bytes, size_t* sent) const {
    const ssize_t count = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    *sent = count > 0 ? static_cast<size_t>(count) : 0;
    return count != -1 && *sent == bytes.size();
  }

  // Sends a byte with a descriptor, which must not reach the server's process.
  bool SendDescriptor(char byte) const {
    iovec piece = {&byte, 1};
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &socket_, sizeof socket_);
    return sendmsg(socket_, &message, MSG_NOSIGNAL) == 1;
  }

  void ReadSome(uint32_t atMost) const {
    std::vector<char> bytes(atMost + 1);
    static_cast<void>(recv(socket_, bytes.data(), atMost, MSG_DONTWAIT));
  }

  void ShutDown(int how) const { shutdown(socket_, how); }

  void Close() {
    if (isConnected()) close(socket_);
    socket_ = kNoDescriptor;
  }

 private:
  const bool isMessage_;
  int socket_ = kNoDescriptor;
};

// ---- The server, and what it must read ----

class Run {
 public:
  explicit Run(Input* input)
      : input_(input),
        isMessage_(input->Byte() % 2 != 0),
        readsMessages_(isMessage_ && input->Byte() % 2 != 0),
        client_(isMessage_) {
    const uint32_t mode = (isMessage_ ? KIV_PIPE_MESSAGES : KIV_PIPE_BYTES) |
                          (readsMessages_ ? KIV_PIPE_READ_MESSAGES : KIV_PIPE_READ_BYTES) |
                          KIV_PIPE_NO_WAIT;
    Check(KivSdNamedPipeCreate(nullptr, PipeName().c_str(), &server_, KIV_PIPE_DUPLEX, mode, 1,
                               4096, 4096, 0) == KIV_ST_OK,
          "a server can be made");
  }
  ~Run() { Check(KivSdPipeClose(nullptr, &server_) == KIV_ST_OK, "a server can be closed"); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void Operate() {
    const uint8_t what = input_->Byte();
    if (what % 2 == 0) {
      OperateServer(what / 2 % 8);
    } else if (!client_.isConnected()) {
      ConnectAnew();
    } else {
      OperateClient(what / 2 % 10);
    }
  }

 private:
  void ConnectAnew() {
    client_.Connect();
    if (client_.isConnected()) sent_.clear();
  }

  void OperateClient(int what) {
    switch (what) {
      case 0:
        return client_.Close();
      case 1:
        return client_.ShutDown(input_->Byte() % 3);
      case 2:
        return client_.ReadSome(SizeOf(input_));
      case 3:
        if (client_.SendDescriptor('d')) Note("d");
        return;
      default:
        return Send();
    }
  }

  void Send() {
    std::string bytes = Pattern(SizeOf(input_));
    if (bytes.empty() && !isMessage_) return;
    size_t count = 0;
    const bool isWhole = client_.Send(bytes, &count);
    if (isMessage_ ? !isWhole : count == 0) return;
    bytes.resize(count);
    Note(bytes);
  }

  // Bytes that show a gap, a repetition and a wrong order.
  std::string Pattern(size_t length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(next_++ % 251);
    return bytes;
  }

  void Note(const std::string& bytes) { sent_.push_back(bytes); }

  void OperateServer(int what) {
    switch (what) {
      case 0:
        Check(IsConnectStatus(KivSdNamedPipeConnect(nullptr, &server_)), "the status of connect");
        return;
      case 1:
        if (KivSdNamedPipeDisconnect(nullptr, &server_) == KIV_ST_OK) ForgetClient();
        return;
      case 2:
        return Write();
      case 3:
      case 4:
        return Peek();
      default:
        return Read();
    }
  }

  static bool IsConnectStatus(uint32_t status) {
    return status == KIV_ST_OK || status == KIV_ST_PIPE_CONNECT;
  }

  void ForgetClient() {
    client_.Close();
    sent_.clear();
  }

  void Write() {
    const std::string bytes(SizeOf(input_), 'w');
    uint32_t count = 0;
    const auto length = static_cast<uint32_t>(bytes.size());
    const uint32_t status = KivSdPipeWrite(nullptr, &server_, bytes.data(), length, &count);
    Check(status == KIV_ST_OK || status == KIV_ST_PIPE_WRITE, "the status of a write");
    Check(count <= length && (status == KIV_ST_OK || count == 0), "the count of a write");
  }

  void Peek() {
    std::vector<char> bytes(SizeOf(input_));
    uint32_t count = 0;
    uint32_t available = 0;
    uint32_t left = 0;
    const uint32_t status =
        KivSdNamedPipePeek(nullptr, &server_, static_cast<uint32_t>(bytes.size()),
                           bytes.empty() ? nullptr : bytes.data(), &count, &available, &left);
    if (status != KIV_ST_OK) return Check(status == KIV_ST_PIPE_PEEK, "the status of a peek");
    Check(count <= bytes.size(), "a peek fits its buffer");
    Check(count <= available, "a peek sees no more than there is");
    bytes.resize(count);
    Check(IsNext(bytes), "a peek sees what was sent");
  }

  void Read() {
    std::vector<char> bytes(std::min(SizeOf(input_), kMostRead));
    bytes.reserve(1);  // a buffer may not be null
    uint32_t count = 0;
    const auto length = static_cast<uint32_t>(bytes.size());
    KivSdContext* ctx = nullptr;
    const uint32_t status = KivSdPipeRead(ctx, &server_, bytes.data(), length, &count);
    Check(status == KIV_ST_OK || status == KIV_ST_PIPE_READ || status == KIV_ST_PIPE_CLOSED,
          "the status of a read");
    Check(count <= length, "a read fits its buffer");
    bytes.resize(count);
    Check(IsNext(bytes), "a read yields what was sent");
    if (status == KIV_ST_OK && readsMessages_) {
      Check(!sent_.empty() && sent_.front().size() == count, "a message ends where it was sent");
      sent_.pop_front();
      return;
    }
    Remove(count);
  }

  // Whether these bytes are the next ones. Messages that are read as such end a read.
  bool IsNext(const std::vector<char>& bytes) const {
    size_t at = 0;
    for (const std::string& piece : sent_) {
      if (at == bytes.size()) break;
      const size_t count = std::min(piece.size(), bytes.size() - at);
      if (std::memcmp(bytes.data() + at, piece.data(), count) != 0) return false;
      at += count;
      if (readsMessages_) break;
    }
    return at == bytes.size();
  }

  // Removes bytes that were read, and the empty messages around them, which have none.
  void Remove(size_t count) {
    while (count != 0) {
      std::string& piece = sent_.front();
      const size_t taken = std::min(piece.size(), count);
      piece.erase(0, taken);
      count -= taken;
      if (!piece.empty()) return;
      if (count == 0 && readsMessages_) return;  // only the rest of a message has been read
      sent_.pop_front();
    }
  }

  Input* input_;
  const bool isMessage_;
  const bool readsMessages_;
  Client client_;
  KivHandle server_ = nullptr;
  uint32_t next_ = 0;
  std::deque<std::string> sent_;  // and not yet read; the first may be a rest
};

int NextDescriptor() {
  const int next = dup(STDERR_FILENO);
  close(next);
  return next;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  const int first = NextDescriptor();
  {
    Input input(bytes, count);
    Run run(&input);
    for (int i = 0; i < kMaxOperations && !input.IsAtEnd(); ++i) run.Operate();
  }
  Check(NextDescriptor() == first, "no descriptor stays open");
  return 0;
}
