#include "dll/lnx/elf_image.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace kiv::test {
namespace {

constexpr uint16_t kVersionMask = 0x7FFF;  // the other bit hides a symbol

std::vector<char> BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

ElfImage::ElfImage(const std::string& path) : bytes_(BytesOf(path)) {
  if (bytes_.size() < sizeof(Elf64_Ehdr) || std::memcmp(bytes_.data(), ELFMAG, SELFMAG) != 0) {
    ADD_FAILURE() << path << " is not a shared object";
    return;
  }
  const Elf64_Ehdr header = Table<Elf64_Ehdr>(0, 1)[0];
  sectionNames_ = header.e_shstrndx;
  segments_ = Table<Elf64_Phdr>(header.e_phoff, header.e_phnum);
  sections_ = Table<Elf64_Shdr>(header.e_shoff, header.e_shnum);
  const Elf64_Shdr* dynamic = SectionOfType(SHT_DYNAMIC);
  dynamic_ = Table<Elf64_Dyn>(dynamic->sh_offset, dynamic->sh_size / sizeof(Elf64_Dyn));
  ReadSymbols();
}

template <typename Entry>
std::vector<Entry> ElfImage::Table(uint64_t offset, uint64_t count) const {
  std::vector<Entry> entries(count);
  std::memcpy(entries.data(), &bytes_.at(offset), count * sizeof(Entry));
  return entries;
}

const Elf64_Shdr* ElfImage::SectionOfType(uint32_t type) const {
  for (const Elf64_Shdr& section : sections_) {
    if (section.sh_type == type) return &section;
  }
  return nullptr;
}

std::string ElfImage::Text(const Elf64_Shdr& table, uint64_t offset) const {
  return &bytes_.at(table.sh_offset + offset);
}

// The names of the versions that the object asks of others, by their number.
std::vector<std::string> ElfImage::VersionNames() const {
  std::vector<std::string> names;
  const Elf64_Shdr* needs = SectionOfType(SHT_GNU_verneed);
  if (needs == nullptr) return names;
  const Elf64_Shdr& texts = sections_[needs->sh_link];
  uint64_t place = needs->sh_offset;
  for (uint32_t library = 0; library < needs->sh_info; ++library) {
    const auto need = Table<Elf64_Verneed>(place, 1)[0];
    uint64_t versionPlace = place + need.vn_aux;
    for (uint16_t i = 0; i < need.vn_cnt; ++i) {
      const auto version = Table<Elf64_Vernaux>(versionPlace, 1)[0];
      if (names.size() <= version.vna_other) names.resize(version.vna_other + 1u);
      names[version.vna_other] = Text(texts, version.vna_name);
      versionPlace += version.vna_next;
    }
    place += need.vn_next;
  }
  return names;
}

void ElfImage::ReadSymbols() {
  const Elf64_Shdr* section = SectionOfType(SHT_DYNSYM);
  const Elf64_Shdr* versionSection = SectionOfType(SHT_GNU_versym);
  const std::vector<std::string> names = VersionNames();
  const auto entries = Table<Elf64_Sym>(section->sh_offset, section->sh_size / sizeof(Elf64_Sym));
  const auto versions = Table<uint16_t>(versionSection->sh_offset, entries.size());
  for (size_t i = 1; i < entries.size(); ++i) {  // the first entry is empty
    const Elf64_Sym& entry = entries[i];
    const uint16_t version = versions[i] & kVersionMask;
    symbols_.push_back({Text(sections_[section->sh_link], entry.st_name),
                        version < names.size() ? names[version] : "", entry.st_shndx != SHN_UNDEF,
                        ELF64_ST_BIND(entry.st_info), ELF64_ST_TYPE(entry.st_info)});
  }
}

std::vector<uint64_t> ElfImage::Values(int64_t tag) const {
  std::vector<uint64_t> values;
  for (const Elf64_Dyn& entry : dynamic_) {
    if (entry.d_tag == tag) values.push_back(entry.d_un.d_val);
  }
  return values;
}

std::vector<std::string> ElfImage::Texts(int64_t tag) const {
  const Elf64_Shdr& texts = sections_[SectionOfType(SHT_DYNAMIC)->sh_link];
  std::vector<std::string> found;
  for (const uint64_t offset : Values(tag)) found.push_back(Text(texts, offset));
  return found;
}

std::optional<uint64_t> ElfImage::Value(int64_t tag) const {
  const std::vector<uint64_t> values = Values(tag);
  if (values.empty()) return std::nullopt;
  return values[0];
}

bool ElfImage::HasSection(const std::string& name) const {
  for (const Elf64_Shdr& section : sections_) {
    if (Text(sections_[sectionNames_], section.sh_name) == name) return true;
  }
  return false;
}

}  // namespace kiv::test
