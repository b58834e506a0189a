#include "stress/subject.h"

#include <algorithm>

#include "kivsdu/status_text.h"

namespace kivsd {

void StressRun::Fail(const std::string& subject, const std::string& what) {
  const std::lock_guard guard(mutex_);
  const std::string error = subject + ": " + what;
  if (std::ranges::find(errors_, error) == errors_.end()) errors_.push_back(error);
  End();
}

std::vector<std::string> StressRun::Errors() const {
  const std::lock_guard guard(mutex_);
  return errors_;
}

bool StressSubject::Succeeded(uint32_t status, const char* action) {
  if (status == 0) return true;
  const KivStatusInfo* info = KivStatusFind(status);
  Fail(std::string("cannot ") + action + ": status " + std::to_string(status) +
       (info != nullptr ? std::string(", ") + info->name : ""));
  return false;
}

}  // namespace kivsd
