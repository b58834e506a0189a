#include "support/manager.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <utility>

#include "support/one_processor.h"

#ifndef _WIN32
// An allocation too large for any machine returns null, as without a sanitizer. No leak check:
// initialising the manager again does not free its heaps.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:detect_leaks=0";
}
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
#endif

namespace kiv::test {
namespace {

namespace fs = std::filesystem;

std::mutex mutex;
std::vector<Message> messages;
std::atomic<uint32_t> answer{0};
std::atomic<void (*)()> action{nullptr};

void SetPath(const std::string& path) {
#ifdef _WIN32
  ASSERT_EQ(_putenv(("MOLTAPATH=" + path).c_str()), 0);
#else
  ASSERT_EQ(setenv("MOLTAPATH", path.c_str(), 1), 0);
#endif
}

// Makes a folder with a random name and returns its path.
std::string MakeFolder() {
  std::random_device random;
  const fs::path folder = fs::temp_directory_path() /
                          ("kivsdu-" + std::to_string(random()) + "-" + std::to_string(random()));
  fs::create_directories(folder / "bin");
  return folder.string();
}

}  // namespace

ConfigurationFile::ConfigurationFile(const std::string& text) : folder_(MakeFolder()) {
  if (text != kNoFile) std::ofstream(fs::path(folder_) / "bin" / "config.mem") << text;
  SetPath(folder_);
}

ConfigurationFile::~ConfigurationFile() { fs::remove_all(folder_); }

uint32_t Initialize(const std::string& text, uint32_t enable, uint32_t force) {
  const OneProcessor oneProcessor;
  const ConfigurationFile file(text);
  return adMemThreadHeapInit(enable, &ReceiveMessage, "tests", force);
}

uint32_t Restart(const std::string& text) {
  EXPECT_EQ(adMemThreadHeapInit(0, &ReceiveMessage, "tests", 0), KIV_ST_OK);
  TakeMessages();
  AnswerMessages(0);
  OnMessage(nullptr);
  return Initialize(text);
}

void PrintTo(const Message& message, std::ostream* out) {
  *out << "{handle " << std::hex << message.handle << std::dec << ", status " << message.status
       << ", severity " << message.severity << ", " << message.first << ", " << message.second
       << "}";
}

uint32_t ReceiveMessage(uint64_t handle, uint32_t status, uint32_t severity, const uint32_t* first,
                        uint32_t firstTag, const uint32_t* second, uint32_t secondTag) {
  EXPECT_EQ(firstTag, 6u);
  EXPECT_EQ(secondTag, 6u);
  {
    const std::lock_guard<std::mutex> guard(mutex);
    messages.push_back({handle, status, severity, *first, *second});
  }
  if (void (*act)() = action) act();
  return answer;
}

std::vector<Message> TakeMessages() {
  const std::lock_guard<std::mutex> guard(mutex);
  return std::exchange(messages, {});
}

void Listen() {
  // The manager ignores the other words.
  static const std::array<uint64_t, 27> context = [] {
    std::array<uint64_t, 27> words;
    words.fill(0xBAD);
    words[26] = kHandle;
    return words;
  }();
  adMemSetThreadContext(context.data());
}

void AnswerMessages(uint32_t result) { answer = result; }

void OnMessage(void (*act)()) { action = act; }

void PrintTo(const Totals& totals, std::ostream* out) {
  *out << "{outside " << totals.outside << ", in heaps " << totals.inHeaps << ", aligned "
       << totals.aligned << ", peaks " << totals.usedPeak << ", " << totals.alignedPeak << ", "
       << totals.totalPeak << "}";
}

Totals TotalsNow() {
  Totals totals{};
  EXPECT_EQ(adMemGetUsedMemory(&totals.outside, &totals.inHeaps, &totals.aligned, &totals.usedPeak,
                               &totals.alignedPeak, &totals.totalPeak),
            0u);
  return totals;
}

void PrintTo(const Marks& marks, std::ostream* out) {
  *out << "{" << marks.used << ", " << marks.aligned << ", " << marks.total << "}";
}

Marks MarksNow() {
  Marks marks{};
  EXPECT_EQ(adMemGetMaxUsedMarkMemory(&marks.used, &marks.aligned, &marks.total), 0u);
  return marks;
}

Counts CountsNow(uint32_t selector) {
  Counts counts{};
  EXPECT_EQ(adMemGetUsedMemoryBlocks(selector, counts.allocated.data(), counts.freed.data()), 0u);
  return counts;
}

Settings SettingsNow() {
  Settings settings;
  settings.fill(0xBAD);
  EXPECT_EQ(adMemGetMemorySettings(settings.data()), settings[6]);
  return settings;
}

void ExpectLarge(const void* payload, uint64_t sizeBytes) {
  const LargeHeader header = HeaderOf(payload);
  EXPECT_EQ(header.sizeBytes, sizeBytes);
  EXPECT_EQ(header.next, nullptr);
  EXPECT_EQ(header.previous, nullptr);
  EXPECT_EQ(header.owner, kNobody);
}

namespace {

unsigned char ByteOf(uint64_t number, uint64_t offset) {
  return static_cast<unsigned char>(number * 131 + offset * 7 + (offset >> 8));
}

}  // namespace

void Fill(void* block, uint64_t sizeBytes, uint64_t number) {
  auto* bytes = static_cast<unsigned char*>(block);
  for (uint64_t i = 0; i < sizeBytes; ++i) bytes[i] = ByteOf(number, i);
}

bool IsFilled(const void* block, uint64_t sizeBytes, uint64_t number) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  for (uint64_t i = 0; i < sizeBytes; ++i) {
    if (bytes[i] != ByteOf(number, i)) return false;
  }
  return true;
}

}  // namespace kiv::test
