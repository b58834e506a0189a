#include "stress/options.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

namespace kiv::stress {
namespace {

constexpr int kWrongUsage = 2;
constexpr double kMaxSeconds = 1e6;
constexpr uint32_t kMaxThreads = 64;

constexpr option kOptions[] = {
    {"seconds", required_argument, nullptr, 's'},
    {"seed", required_argument, nullptr, 'n'},
    {"lock", required_argument, nullptr, 'l'},
    {"threads", required_argument, nullptr, 't'},
    {"hang", required_argument, nullptr, 'g'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

[[noreturn]] void ShowUsage(std::FILE* output, const std::vector<std::string>& locks, int code) {
  std::fprintf(output,
               "Usage: lock_stress [OPTION ...]\n"
               "Stress of the locks, with random delays inside them.\n\n"
               "  --seconds S   how long; 60 by default\n"
               "  --seed N      seed of the first trial; random by default\n"
               "  --lock NAME   only this lock; may be given several times\n"
               "  --threads N   threads per trial, 2 to %u, or fewer if the lock allows fewer\n"
               "  --hang S      seconds without progress that count as a hang; 20 by default\n"
               "  --help        shows this text\n\n"
               "Locks:\n",
               kMaxThreads);
  for (const std::string& lock : locks) std::fprintf(output, "  %s\n", lock.c_str());
  std::exit(code);
}

// Reads a number from the whole text; fails if it is not between the two limits.
template <typename Number>
bool Parse(const char* text, Number least, Number most, Number* number) {
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, *number);
  return error == std::errc() && stop == end && *number >= least && *number <= most;
}

bool AddLock(const char* name, const std::vector<std::string>& locks, Options* options) {
  if (std::find(locks.begin(), locks.end(), name) == locks.end()) return false;
  options->locks.push_back(name);
  return true;
}

bool Apply(int letter, const std::vector<std::string>& locks, Options* options) {
  switch (letter) {
    case 's':
      return Parse(optarg, 0.001, kMaxSeconds, &options->seconds);
    case 'n':
      return Parse(optarg, uint64_t{0}, UINT64_MAX, &options->seed);
    case 'l':
      return AddLock(optarg, locks, options);
    case 't':
      return Parse(optarg, 2u, kMaxThreads, &options->threads);
    case 'g':
      return Parse(optarg, 0.1, kMaxSeconds, &options->hangSeconds);
    default:
      return false;
  }
}

}  // namespace

Options ParseOptions(int argc, char** argv, const std::vector<std::string>& locks) {
  Options options;
  options.seed = std::random_device()();
  int letter;
  while ((letter = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    if (letter == 'h') ShowUsage(stdout, locks, 0);
    if (letter != '?' && !Apply(letter, locks, &options)) {
      std::fprintf(stderr, "lock_stress: '%s' is out of range\n", optarg);
      std::exit(kWrongUsage);
    }
    if (letter == '?') ShowUsage(stderr, locks, kWrongUsage);
  }
  if (optind != argc) ShowUsage(stderr, locks, kWrongUsage);
  return options;
}

}  // namespace kiv::stress
