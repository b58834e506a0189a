// The parser throws exceptions; none leaves this file.
#include "soak/options.h"

#include <cstdlib>
#include <random>

#include <CLI/CLI.hpp>

#include "soak/board.h"

namespace kiv::soak {
namespace {

constexpr char kAbout[] =
    "Uses all of the library at once: processes with many threads, of which one is killed every "
    "second\nand started anew. Checks locks, blocks, files and messages at every step, the heaps "
    "every second, and\nat the end that memory, handles and names are back.";

constexpr char kHidden[] = "";  // CLI11 shows no option of this group

void AddOptions(CLI::App* app, Options* options) {
  app->add_option("--seconds", options->seconds, "How long")
      ->check(CLI::Range(1u, 10'000'000u))
      ->capture_default_str();
  app->add_option("--processes", options->processes, "Processes; every second one has thread heaps")
      ->check(CLI::Range(1u, kMostProcesses))
      ->capture_default_str();
  app->add_option("--threads", options->threads, "Threads of each process")
      ->check(CLI::Range(1u, kMostThreads))
      ->capture_default_str();
  app->add_option("--kill-ms", options->killMs, "Average milliseconds between two kills; 0: none")
      ->check(CLI::Range(0u, 3'600'000u))
      ->capture_default_str();
  app->add_option("--seed", options->seed,
                  "Seed of what the threads choose; random by default. The system still schedules "
                  "the threads as it likes");
  app->add_option("--worker", options->worker)->group(kHidden);
  app->add_option("--prefix", options->prefix)->group(kHidden);
  app->add_option("--folder", options->folder)->group(kHidden);
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
  Options options;
  options.seed = std::random_device()();
  CLI::App app(kAbout, "soak");
  AddOptions(&app, &options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::exit(app.exit(error));
  }
  return options;
}

}  // namespace kiv::soak
