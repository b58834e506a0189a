// Windows' channels between two processes (channel.h), and the start of the other process.
#ifndef KIV_BENCH_W32_PLATFORM_CHANNELS_H
#define KIV_BENCH_W32_PLATFORM_CHANNELS_H

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "channel.h"
#include "own_process.h"

namespace kiv::bench {

constexpr DWORD kPipeBufferBytes = 4096;

// ---- The segment's hand-over without the library ----

class RawChannel : public Channel {
 public:
  RawChannel(const std::string& name, bool peer)
      : name_(name),
        mapping_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                    2 * kHalfBytes, name.c_str())),
        area_(static_cast<char*>(MapViewOfFile(mapping_, FILE_MAP_WRITE, 0, 0, 2 * kHalfBytes))),
        out_(HalfOf(peer ? 1 : 0)),
        in_(HalfOf(peer ? 0 : 1)) {
    Require(area_ != nullptr, "no mapping");
  }
  ~RawChannel() override {
    for (const HANDLE handle : {out_.full, out_.empty, in_.full, in_.empty, mapping_}) {
      CloseHandle(handle);
    }
    UnmapViewOfFile(area_);
  }

  void Send(const char* data, uint32_t length) override {
    while (length != 0) {
      const uint32_t portion = std::min(length, kPayloadBytes);
      WaitForSingleObject(out_.empty, INFINITE);
      std::memcpy(out_.bytes + sizeof(uint64_t), data, portion);
      const uint64_t header = uint64_t{portion} << 32;
      std::memcpy(out_.bytes, &header, sizeof header);
      ReleaseSemaphore(out_.full, 1, nullptr);
      data += portion;
      length -= portion;
    }
  }
  void Receive(char* data, uint32_t length) override {
    while (length != 0) {
      WaitForSingleObject(in_.full, INFINITE);
      uint64_t header = 0;
      std::memcpy(&header, in_.bytes, sizeof header);
      const uint32_t portion = std::min(length, static_cast<uint32_t>(header >> 32));
      std::memcpy(data, in_.bytes + sizeof header, portion);
      ReleaseSemaphore(in_.empty, 1, nullptr);
      data += portion;
      length -= portion;
    }
  }
  std::string name() const override { return name_; }

 private:
  struct Half {
    char* bytes;
    HANDLE full;
    HANDLE empty;
  };

  Half HalfOf(int number) const {
    const std::string suffix = std::to_string(number);
    return {area_ + static_cast<size_t>(number) * kHalfBytes,
            CreateSemaphoreA(nullptr, 0, 1, (name_ + "-full" + suffix).c_str()),
            CreateSemaphoreA(nullptr, 1, 1, (name_ + "-empty" + suffix).c_str())};
  }

  std::string name_;
  HANDLE mapping_;
  char* area_;
  Half out_;
  Half in_;
};

// ---- Pipes ----

class PipeChannel : public Channel {
 public:
  ~PipeChannel() override {
    CloseHandle(read_);
    if (write_ != read_) CloseHandle(write_);
  }

  void Send(const char* data, uint32_t length) override {
    DWORD count = 0;
    WriteFile(write_, data, length, &count, nullptr);
  }
  void Receive(char* data, uint32_t length) override {
    DWORD count = 0;
    for (uint32_t got = 0; got < length; got += count) {
      if (!ReadFile(read_, data + got, length - got, &count, nullptr)) std::exit(1);
    }
  }

 protected:
  HANDLE read_ = nullptr;
  HANDLE write_ = nullptr;
};

class NamedPipeChannel : public PipeChannel {
 public:
  NamedPipeChannel(const std::string& name, bool peer) : name_(name) {
    const std::string path = "\\\\.\\pipe\\" + name;
    read_ = peer ? CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, 0, nullptr)
                 : CreateNamedPipeA(path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1,
                                    kPipeBufferBytes, kPipeBufferBytes, 0, nullptr);
    write_ = read_;
    Require(read_ != INVALID_HANDLE_VALUE, "no named pipe");
  }
  void Connect() override { ConnectNamedPipe(read_, nullptr); }
  std::string name() const override { return name_; }

 private:
  std::string name_;
};

class AnonymousPipesChannel : public PipeChannel {
 public:
  AnonymousPipesChannel(const std::string& name, bool peer) {
    if (peer) {
      read_ = HandleFrom(name);
      write_ = HandleFrom(name.substr(name.find(':') + 1));
      return;
    }
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    Require(CreatePipe(&peerRead_, &write_, &inherited, kPipeBufferBytes) &&
                CreatePipe(&read_, &peerWrite_, &inherited, kPipeBufferBytes),
            "no pipes");
  }
  ~AnonymousPipesChannel() override {
    if (peerRead_ == nullptr) return;
    CloseHandle(peerRead_);
    CloseHandle(peerWrite_);
  }
  std::string name() const override { return NumberOf(peerRead_) + ":" + NumberOf(peerWrite_); }

 private:
  static std::string NumberOf(HANDLE handle) {
    return std::to_string(reinterpret_cast<uintptr_t>(handle));
  }
  static HANDLE HandleFrom(const std::string& number) {
    return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(std::stoull(number)));
  }

  HANDLE peerRead_ = nullptr;
  HANDLE peerWrite_ = nullptr;
};

// The platform's channels by number, and their names in the report.
constexpr const char* kPlatformChannels[] = {"raw", "namedPipe", "anonymousPipes"};
constexpr int kOneThreadChannels = 2;  // the first so many also work within one thread

inline std::unique_ptr<Channel> MakePlatformChannel(int number, const std::string& name,
                                                    bool peer) {
  switch (number) {
    case 0:
      return std::make_unique<RawChannel>(name, peer);
    case 1:
      return std::make_unique<NamedPipeChannel>(name, peer);
    default:
      return std::make_unique<AnonymousPipesChannel>(name, peer);
  }
}

inline uint32_t OwnProcessId() { return GetCurrentProcessId(); }

// This program, started with arguments. The destructor kills it.
class PeerProcess {
 public:
  explicit PeerProcess(const std::vector<std::string>& arguments) {
    const std::string path = OwnPath();
    std::string line = "\"" + path + "\"";
    for (const std::string& argument : arguments) line += " " + argument;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    Require(CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                           &startup, &process_),
            "no other process");
  }
  ~PeerProcess() {
    TerminateProcess(process_.hProcess, 0);
    WaitForSingleObject(process_.hProcess, INFINITE);
    CloseHandle(process_.hThread);
    CloseHandle(process_.hProcess);
  }
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;

 private:
  PROCESS_INFORMATION process_ = {};
};

}  // namespace kiv::bench

#endif
