// Finds the build text of the loaded libkivsdu: an ELF note of the library or, with the static
// library, of the program.
#ifndef KIVSDU_CPP_LNX_BUILD_TEXT_HPP
#define KIVSDU_CPP_LNX_BUILD_TEXT_HPP

#include <link.h>

#include <cstddef>
#include <cstring>
#include <string_view>

namespace kivsdu::detail {

inline constexpr char kNoteOwner[] = "kivsdu";
inline constexpr ElfW(Word) kNoteBuild = 1;

// The note's text in a segment of notes; empty if there is none.
inline std::string_view BuildNote(const char* notes, std::size_t bytes) noexcept {
  constexpr std::size_t kWord = 4;
  const auto padded = [](std::size_t length) { return (length + kWord - 1) / kWord * kWord; };
  while (bytes >= sizeof(ElfW(Nhdr))) {
    ElfW(Nhdr) header;
    std::memcpy(&header, notes, sizeof(header));
    const char* owner = notes + sizeof(header);
    const char* text = owner + padded(header.n_namesz);
    const std::size_t length = sizeof(header) + padded(header.n_namesz) + padded(header.n_descsz);
    if (length > bytes) return {};
    if (header.n_type == kNoteBuild && header.n_namesz == sizeof(kNoteOwner) &&
        std::memcmp(owner, kNoteOwner, sizeof(kNoteOwner)) == 0) {
      return {text, header.n_descsz};
    }
    notes += length;
    bytes -= length;
  }
  return {};
}

inline int FindBuildNote(dl_phdr_info* module, std::size_t, void* found) noexcept {
  for (int i = 0; i < module->dlpi_phnum; i++) {
    const ElfW(Phdr)& segment = module->dlpi_phdr[i];
    if (segment.p_type != PT_NOTE || segment.p_align > 4) continue;
    const auto address = module->dlpi_addr + segment.p_vaddr;
    const std::string_view text =
        BuildNote(reinterpret_cast<const char*>(address), segment.p_memsz);
    if (text.empty()) continue;
    *static_cast<std::string_view*>(found) = text;
    return 1;
  }
  return 0;
}

// Empty if no module of the process has the note. The text is the module's.
inline std::string_view LoadedBuildText() noexcept {
  std::string_view text;
  dl_iterate_phdr(FindBuildNote, &text);
  return text;
}

}  // namespace kivsdu::detail

#endif
