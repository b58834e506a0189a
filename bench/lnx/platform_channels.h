// Linux' channels between two processes (channel.h), and the start of the other process.
#ifndef KIV_BENCH_LNX_PLATFORM_CHANNELS_H
#define KIV_BENCH_LNX_PLATFORM_CHANNELS_H

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "channel.h"
#include "raw.h"

namespace kiv::bench {

// ---- The segment's hand-over without the library ----

// Two halves with futex semaphores, in memory that both processes map.
class RawChannel : public Channel {
 public:
  RawChannel(const std::string& name, bool peer) : name_(name) {
    const int file = shm_open(("/" + name).c_str(), O_RDWR | O_CREAT, 0600);
    Require(file >= 0 && ftruncate(file, sizeof(Area)) == 0, "no shared memory");
    void* mapped = mmap(nullptr, sizeof(Area), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    Require(mapped != MAP_FAILED, "no mapping");
    close(file);
    area_ = static_cast<Area*>(mapped);
    if (!peer) {
      new (area_) Area;
      for (Half& half : area_->halves) half.empty.Give();
    }
    out_ = &area_->halves[peer ? 1 : 0];
    in_ = &area_->halves[peer ? 0 : 1];
  }
  ~RawChannel() override {
    munmap(area_, sizeof(Area));
    shm_unlink(("/" + name_).c_str());
  }

  void Send(const char* data, uint32_t length) override {
    while (length != 0) {
      const uint32_t portion = std::min(length, kPayloadBytes);
      out_->empty.Take();
      std::memcpy(out_->bytes + sizeof(uint64_t), data, portion);
      const uint64_t header = uint64_t{portion} << 32;
      std::memcpy(out_->bytes, &header, sizeof header);
      out_->full.Give();
      data += portion;
      length -= portion;
    }
  }
  void Receive(char* data, uint32_t length) override {
    while (length != 0) {
      in_->full.Take();
      uint64_t header = 0;
      std::memcpy(&header, in_->bytes, sizeof header);
      const uint32_t portion = std::min(length, static_cast<uint32_t>(header >> 32));
      std::memcpy(data, in_->bytes + sizeof header, portion);
      in_->empty.Give();
      data += portion;
      length -= portion;
    }
  }
  std::string name() const override { return name_; }

 private:
  struct Half {
    raw::Semaphore full;
    raw::Semaphore empty;
    char bytes[kHalfBytes];
  };
  struct Area {
    Half halves[2];
  };

  std::string name_;
  Area* area_ = nullptr;
  Half* out_ = nullptr;
  Half* in_ = nullptr;
};

// ---- Descriptors that the other process inherits ----

class DescriptorChannel : public Channel {
 public:
  ~DescriptorChannel() override {
    for (const int file : {read_, write_, peerRead_, peerWrite_}) {
      if (file >= 0) close(file);
    }
  }

  void Send(const char* data, uint32_t length) override {
    for (uint32_t sent = 0; sent < length;) {
      const ssize_t count = write(write_, data + sent, length - sent);
      if (count <= 0) std::exit(1);
      sent += static_cast<uint32_t>(count);
    }
  }
  void Receive(char* data, uint32_t length) override {
    for (uint32_t got = 0; got < length;) {
      const ssize_t count = read(read_, data + got, length - got);
      if (count <= 0) std::exit(1);
      got += static_cast<uint32_t>(count);
    }
  }
  std::string name() const override {
    return std::to_string(peerRead_) + ":" + std::to_string(peerWrite_);
  }

 protected:
  void Inherit(const std::string& name) {
    read_ = std::stoi(name);
    write_ = std::stoi(name.substr(name.find(':') + 1));
  }

  int read_ = -1;
  int write_ = -1;
  int peerRead_ = -1;
  int peerWrite_ = -1;
};

class SocketPairChannel : public DescriptorChannel {
 public:
  SocketPairChannel(const std::string& name, bool peer) {
    if (peer) {
      Inherit(name);
      return;
    }
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "no socket pair");
    read_ = ends[0];
    write_ = dup(ends[0]);
    peerRead_ = ends[1];
    peerWrite_ = dup(ends[1]);
  }
};

class PipePairChannel : public DescriptorChannel {
 public:
  PipePairChannel(const std::string& name, bool peer) {
    if (peer) {
      Inherit(name);
      return;
    }
    int there[2];
    int back[2];
    Require(pipe(there) == 0 && pipe(back) == 0, "no pipes");
    peerRead_ = there[0];
    write_ = there[1];
    read_ = back[0];
    peerWrite_ = back[1];
  }
};

// The platform's channels by number, and their names in the report.
constexpr const char* kPlatformChannels[] = {"raw", "socketPair", "pipePair"};
constexpr int kOneThreadChannels = 1;  // the first so many also work within one thread

inline std::unique_ptr<Channel> MakePlatformChannel(int number, const std::string& name,
                                                    bool peer) {
  switch (number) {
    case 0:
      return std::make_unique<RawChannel>(name, peer);
    case 1:
      return std::make_unique<SocketPairChannel>(name, peer);
    default:
      return std::make_unique<PipePairChannel>(name, peer);
  }
}

inline uint32_t OwnProcessId() { return static_cast<uint32_t>(getpid()); }

// This program, started with arguments. The destructor kills it.
class PeerProcess {
 public:
  explicit PeerProcess(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "segments_bench");
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    Require(posix_spawn(&id_, "/proc/self/exe", nullptr, nullptr, words.data(), environ) == 0,
            "no other process");
  }
  ~PeerProcess() {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

 private:
  pid_t id_ = 0;
};

}  // namespace kiv::bench

#endif
