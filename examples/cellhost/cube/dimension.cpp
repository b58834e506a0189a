// Members of a dimension; see dimension.h.
#include "cube/dimension.h"

namespace cellhost {
namespace {

constexpr char kSourceMembers[] = "cellhost/dimension members";
constexpr char kSourceIndex[] = "cellhost/dimension index";

}  // namespace

Dimension::Dimension() : members_(kSourceMembers), index_(kSourceIndex) {}

uint32_t Dimension::FindHashed(uint32_t hash, std::string_view member) const {
  return index_.Find(hash, [&](uint32_t number) { return members_[number] == member; });
}

uint32_t Dimension::Find(std::string_view member) const {
  return FindHashed(HashBytes(member.data(), member.size()), member);
}

bool Dimension::FindOrAdd(std::string_view member, TextStack* names, uint32_t* number) {
  const uint32_t hash = HashBytes(member.data(), member.size());
  *number = FindHashed(hash, member);
  if (*number != kNoEntry) return true;

  *number = members_.count();
  std::string_view kept;
  return names->Push(member, &kept) && members_.Append(kept) && index_.Insert(hash, *number);
}

}  // namespace cellhost
