#include "os/assertion.h"

#include <cstdlib>
#include <string>

#include "support/lnx/seam_import.h"

namespace kiv::test {

KIV_SEAM_PRIMITIVE(AssertionFailed, "_ZN3kiv2os15AssertionFailedEPKcS2_j")
KIV_SEAM_PRIMITIVE(WideAssertionFailed, "_ZN3kiv2os19WideAssertionFailedEPKcS2_j")

namespace {

std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (const wchar_t letter : text) narrow += static_cast<char>(letter);
  return narrow;
}

std::wstring Widen(const std::string& text) { return {text.begin(), text.end()}; }

void Assert(const char* condition, const char* source, uint32_t line) {
  RealAssertionFailed(condition, source, line);
}

void WideAssert(const wchar_t* condition, const wchar_t* source, uint32_t line) {
  RealWideAssertionFailed(Narrow(condition).c_str(), Narrow(source).c_str(), line);
}

SeamImport<decltype(Assert)> assertImport("_assert", Assert);
SeamImport<decltype(WideAssert)> wideAssertImport("_wassert", WideAssert);

}  // namespace

void WrapAssertionFailed(const char* condition, const char* source, uint32_t line) {
  assertImport.Call(condition, source, line);
  std::abort();
}

void WrapWideAssertionFailed(const char* condition, const char* source, uint32_t line) {
  wideAssertImport.Call(Widen(condition).c_str(), Widen(source).c_str(), line);
}

}  // namespace kiv::test
