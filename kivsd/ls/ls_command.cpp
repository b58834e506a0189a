#include "ls/ls_command.h"

#include <cstdio>

#include "exit_code.h"
#include "json.h"
#include "ls/listing.h"

namespace kivsd {
namespace {

const char* KindText(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::kSemaphore:
      return "semaphore";
    case ObjectKind::kMutex:
      return "mutex";
    case ObjectKind::kBlock:
      return "block";
    case ObjectKind::kSegment:
      return "segment";
    case ObjectKind::kPipe:
      return "pipe";
    case ObjectKind::kUnknown:
      break;
  }
  return "unknown";
}

std::string DetailText(const ListedObject& object) {
  if (object.count) return "count " + std::to_string(*object.count);
  return object.sizeBytes != 0 ? SizeText(object.sizeBytes) : "";
}

std::string OwnerText(const ListedObject& object) {
  std::string text;
  for (const Owner& owner : object.owners) {
    if (!text.empty()) text += ", ";
    text += std::to_string(owner.processId) + " " + owner.program;
  }
  return text;
}

void PrintText(const Listing& listing) {
  if (!listing.objects.empty()) {
    std::printf("%-10s %-30s %-12s %s\n", "kind", "name", "", "owners");
  }
  for (const ListedObject& object : listing.objects) {
    std::string line(96, '\0');
    std::snprintf(line.data(), line.size(), "%-10s %-30.60s %-12s", KindText(object.kind),
                  object.name.c_str(), DetailText(object).c_str());
    line.resize(line.find('\0'));
    line.erase(line.find_last_not_of(' ') + 1);
    std::printf("%s", Wrapped(line, 54, OwnerText(object)).c_str());
  }
  if (listing.objects.empty()) std::printf("no named object was found\n");
  if (!listing.note.empty()) std::printf("\n%s", Wrapped("", 0, listing.note).c_str());
}

Json JsonOfObject(const ListedObject& object) {
  Json owners = Json::array();
  for (const Owner& owner : object.owners) {
    owners.push_back({{"process", owner.processId}, {"program", owner.program}});
  }
  Json json = {{"kind", KindText(object.kind)}, {"name", object.name}};
  if (object.count) json["count"] = *object.count;
  if (object.sizeBytes != 0) json["bytes"] = object.sizeBytes;
  json["owners"] = owners;
  return json;
}

}  // namespace

int LsCommand(const LsOptions& options) {
  const Listing listing = ListObjects();
  if (options.format == Format::kText) {
    PrintText(listing);
    return kExitDone;
  }
  Json objects = Json::array();
  for (const ListedObject& object : listing.objects) objects.push_back(JsonOfObject(object));
  PrintJson({{"objects", objects}, {"note", listing.note}});
  return kExitDone;
}

}  // namespace kivsd
