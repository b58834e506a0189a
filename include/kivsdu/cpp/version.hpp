// The version of the headers, and version and flavour of the library that the process has loaded.
//
// A program can be compiled with the headers of one version and run with the library of another.
// Libraries of one major version have the same functions; a program that needs a later minor
// version asks for it here.
#ifndef KIVSDU_CPP_VERSION_HPP
#define KIVSDU_CPP_VERSION_HPP

#include <charconv>
#include <compare>
#include <cstdint>
#include <optional>
#include <string_view>

#include "../version.h"

#ifdef _WIN32
#include "w32/build_text.hpp"
#else
#include "lnx/build_text.hpp"
#endif

namespace kivsdu {

struct Version {
  uint32_t major;
  uint32_t minor;
  uint32_t patch;

  // NOLINTNEXTLINE(modernize-use-nullptr): a false finding in the generated comparison
  friend constexpr auto operator<=>(const Version&, const Version&) = default;
};

inline constexpr Version kHeaderVersion = {KIV_VERSION_MAJOR, KIV_VERSION_MINOR, KIV_VERSION_PATCH};

// A build of the library.
struct LibraryBuild {
  Version version;
  std::string_view flavour;  // the C runtime: "msvcrt", "ucrt" or "glibc", and further words
};

// Parses a build text, such as "0.1.0 msvcrt". Returns nothing if it has another form.
inline std::optional<LibraryBuild> ParseBuild(std::string_view text) noexcept {
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  uint32_t numbers[3] = {};
  const char* at = text.data();
  const char* end = at + text.size();
  for (uint32_t& number : numbers) {
    const bool isLast = &number == &numbers[2];
    const auto [next, error] = std::from_chars(at, end, number);
    if (error != std::errc{} || next == end || *next != (isLast ? ' ' : '.')) return std::nullopt;
    at = next + 1;
  }
  const std::string_view flavour(at, static_cast<size_t>(end - at));
  if (flavour.empty()) return std::nullopt;
  return LibraryBuild{{numbers[0], numbers[1], numbers[2]}, flavour};
}

// Returns version and flavour of the loaded library, or nothing if it does not say. The flavour's
// text belongs to the library. Any thread.
inline std::optional<LibraryBuild> LoadedLibrary() noexcept {
  return ParseBuild(detail::LoadedBuildText());
}

}  // namespace kivsdu

#endif
