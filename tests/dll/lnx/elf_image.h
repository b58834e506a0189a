// Reads the file of a 64-bit shared object.
#ifndef KIV_TESTS_DLL_LNX_ELF_IMAGE_H
#define KIV_TESTS_DLL_LNX_ELF_IMAGE_H

#include <elf.h>

#include <optional>
#include <string>
#include <vector>

namespace kiv::test {

// A symbol that the loader sees.
struct DynamicSymbol {
  std::string name;
  std::string version;  // that it asks of another library, such as GLIBC_2.34; empty if none
  bool defined;
  int binding;  // STB_
  int type;     // STT_
};

class ElfImage {
 public:
  // Fails the test if the file cannot be read.
  explicit ElfImage(const std::string& path);

  const std::vector<Elf64_Phdr>& segments() const { return segments_; }
  const std::vector<DynamicSymbol>& symbols() const { return symbols_; }

  // The values of a tag (DT_) of the dynamic section, as numbers and as texts.
  std::vector<uint64_t> Values(int64_t tag) const;
  std::vector<std::string> Texts(int64_t tag) const;

  // The only value of a tag; nothing if the tag is missing.
  std::optional<uint64_t> Value(int64_t tag) const;

  bool HasSection(const std::string& name) const;

 private:
  template <typename Entry>
  std::vector<Entry> Table(uint64_t offset, uint64_t count) const;
  const Elf64_Shdr* SectionOfType(uint32_t type) const;
  std::string Text(const Elf64_Shdr& table, uint64_t offset) const;
  std::vector<std::string> VersionNames() const;
  void ReadSymbols();

  std::vector<char> bytes_;
  std::vector<Elf64_Phdr> segments_;
  std::vector<Elf64_Shdr> sections_;
  std::vector<Elf64_Dyn> dynamic_;
  std::vector<DynamicSymbol> symbols_;
  uint16_t sectionNames_ = 0;  // number of the section that has the sections' names
};

}  // namespace kiv::test

#endif
