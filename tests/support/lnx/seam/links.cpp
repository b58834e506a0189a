#include "os/links.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;

KIV_SEAM_PRIMITIVE(MakeLink, "_ZN3kiv2os8MakeLinkEPKcS2_")

namespace {

int32_t CreateHardLink(const char* newLink, const char* existing, void*) {
  return ToBool(RealMakeLink(newLink, existing));
}

SeamImport<decltype(CreateHardLink)> createHardLink("CreateHardLinkA", CreateHardLink);

}  // namespace

Result WrapMakeLink(const char* newLink, const char* existing) {
  void* const none = nullptr;
  return FromBool(createHardLink.Call(newLink, existing, none));
}

}  // namespace kiv::test
