// The machine, in one record of the library.
#ifndef KIVSD_INFO_MACHINE_INFO_H
#define KIVSD_INFO_MACHINE_INFO_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kivsdu/system.h"

namespace kivsd {

class MachineInfo {
 public:
  // Reads the record. Without success, Reason() says why.
  MachineInfo();

  bool IsAvailable() const { return reason_.empty(); }
  const std::string& Reason() const { return reason_; }
  const KivSdOSResources& Record() const;
  std::span<const KivSdDriveInfo> Drives() const;

 private:
  std::vector<uint64_t> room_;
  std::string reason_;
};

// A status as a sentence for a person.
std::string ReasonOf(uint32_t status);

}  // namespace kivsd

#endif
