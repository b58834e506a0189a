#include "ls/listing.h"

#include <algorithm>

namespace kivsd {
namespace {

ListedObject* Find(std::vector<ListedObject>* objects, ObjectKind kind, const std::string& name) {
  for (ListedObject& object : *objects) {
    if (object.kind == kind && object.name == name) return &object;
  }
  return nullptr;
}

// The semaphores of a set are called NAME_0, NAME_1 and so on.
bool IsOfSet(const ListedObject& object, const std::string& name) {
  if (object.kind != ObjectKind::kSemaphore || !object.name.starts_with(name + "_")) return false;
  const std::string number = object.name.substr(name.size() + 1);
  return !number.empty() &&
         std::ranges::all_of(number, [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

void JoinSegments(std::vector<ListedObject>* objects) {
  std::vector<std::string> names;
  for (const ListedObject& object : *objects) {
    const bool isSegment = object.kind == ObjectKind::kBlock &&
                           Find(objects, ObjectKind::kSemaphore, object.name + "_0") != nullptr;
    if (isSegment) names.push_back(object.name);
  }
  for (const std::string& name : names) {
    Find(objects, ObjectKind::kBlock, name)->kind = ObjectKind::kSegment;
    std::erase_if(*objects, [&](const ListedObject& object) { return IsOfSet(object, name); });
  }
}

}  // namespace kivsd
