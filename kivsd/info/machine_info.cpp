#include "info/machine_info.h"

#include "kivsdu/status_text.h"

namespace kivsd {

std::string ReasonOf(uint32_t status) {
  const KivStatusInfo* info = KivStatusFind(status);
  const std::string number = "status " + std::to_string(status);
  return info == nullptr ? number : number + ": " + info->text;
}

MachineInfo::MachineInfo() {
  uint64_t sizeBytes = 0;
  uint32_t status = KivSdOSResourcesSizeGet(nullptr, &sizeBytes);
  if (status == 0) {
    room_.resize((sizeBytes + 7) / 8);
    status = KivSdOSResourcesGet(nullptr, static_cast<uint32_t>(room_.size() * 8),
                                 reinterpret_cast<KivSdOSResources*>(room_.data()));
  }
  if (status != 0) reason_ = ReasonOf(status);
}

const KivSdOSResources& MachineInfo::Record() const {
  return *reinterpret_cast<const KivSdOSResources*>(room_.data());
}

// The record has one drive; the others follow it.
std::span<const KivSdDriveInfo> MachineInfo::Drives() const {
  const KivSdOSResources& record = Record();
  return {record.drive, record.drives.count};
}

}  // namespace kivsd
