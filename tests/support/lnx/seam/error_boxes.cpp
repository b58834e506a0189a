#include "os/error_boxes.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

KIV_SEAM_PRIMITIVE(SetErrorBoxes, "_ZN3kiv2os13SetErrorBoxesEj")

namespace {

uint32_t SetErrorMode(uint32_t mode) { return RealSetErrorBoxes(mode); }

SeamImport<decltype(SetErrorMode)> setErrorMode("SetErrorMode", SetErrorMode);

}  // namespace

uint32_t WrapSetErrorBoxes(uint32_t mode) { return setErrorMode.Call(mode); }

}  // namespace kiv::test
