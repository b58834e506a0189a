#include "os/environment.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

KIV_SEAM_PRIMITIVE(EnvironmentValue, "_ZN3kiv2os16EnvironmentValueEPKc")

namespace {

const char* Getenv(const char* name) { return RealEnvironmentValue(name); }

SeamImport<decltype(Getenv)> getenvImport("getenv", Getenv);

}  // namespace

const char* WrapEnvironmentValue(const char* name) { return getenvImport.Call(name); }

}  // namespace kiv::test
