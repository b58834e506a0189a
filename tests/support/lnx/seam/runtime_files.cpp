// The C runtime's streams, which the library calls directly. The linker redirects the calls of the
// whole program. A patch that opens a stream itself must call the original.
#include <cstdio>

#include "support/lnx/seam_import.h"

namespace kiv::test {

KIV_SEAM_FUNCTION(fopen, OpenStream, "fopen")

namespace {

SeamImport<decltype(RealOpenStream)> openStreamImport("fopen", RealOpenStream);

}  // namespace

std::FILE* WrapOpenStream(const char* path, const char* mode) {
  return openStreamImport.Call(path, mode);
}

}  // namespace kiv::test
