#include "top/host.h"

#include <algorithm>

#include "failure.h"
#include "platform.h"

namespace kivsd {
namespace {

constexpr char kHowToPublish[] =
    "A host publishes with kivsdu::MemoryPublisher (include/kivsdu/publisher.hpp). Only its own "
    "user sees it, and on Windows only in its own session, unless it is a service.";

void AddHost(uint32_t processId, std::vector<Host>* hosts) {
  kivsdu::MemoryReader reader;
  kivsdu::MemorySample sample;
  if (reader.Open(processId) != KIV_ST_OK) return;
  if (reader.Read(&sample) != kivsdu::MemoryReader::Outcome::kSample) return;
  hosts->push_back({processId, sample.host});
}

std::string ListOf(const std::vector<Host>& hosts) {
  std::string text;
  for (const Host& host : hosts) {
    text += "\n  " + std::to_string(host.processId) + "  " + host.name;
  }
  return text;
}

bool IsMeant(const Host& host, const std::string& wanted) {
  return wanted.empty() || wanted == host.name || wanted == std::to_string(host.processId);
}

}  // namespace

std::vector<Host> FindHosts() {
  std::vector<Host> hosts;
  for (const uint32_t processId : ProcessIds()) AddHost(processId, &hosts);
  std::ranges::sort(hosts, {}, &Host::processId);
  return hosts;
}

Host ChooseHost(const std::string& wanted) {
  const std::vector<Host> hosts = FindHosts();
  if (hosts.empty()) throw Failure(std::string("no host publishes its memory. ") + kHowToPublish);
  std::vector<Host> meant;
  std::ranges::copy_if(hosts, std::back_inserter(meant),
                       [&](const Host& host) { return IsMeant(host, wanted); });
  if (meant.size() == 1) return meant.front();
  if (meant.empty()) {
    throw Failure("no host is called '" + wanted + "'. These hosts publish:" + ListOf(hosts));
  }
  throw Failure("several hosts publish; name one by its process identifier:" + ListOf(meant));
}

}  // namespace kivsd
