#include "os/pipes.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::PipeEnds;
using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(MakePipe, "_ZN3kiv2os8MakePipeEj")
KIV_SEAM_PRIMITIVE(ClosePipe, "_ZN3kiv2os9ClosePipeEPv")
KIV_SEAM_PRIMITIVE(ReadPipe, "_ZN3kiv2os8ReadPipeEPvS1_j")
KIV_SEAM_PRIMITIVE(WritePipe, "_ZN3kiv2os9WritePipeEPvPKvj")

namespace {

int32_t CreatePipe(void** read, void** write, void*, uint32_t bufferBytes) {
  const ValueResult<PipeEnds> made = RealMakePipe(bufferBytes);
  *read = made.value.read;
  *write = made.value.write;
  return ToBool({made.ok, made.error});
}

int32_t CloseHandle(void* pipe) { return ToBool(RealClosePipe(pipe)); }

int32_t ReadFile(void* pipe, void* buffer, uint32_t length, uint32_t* count, void*) {
  const ValueResult<uint32_t> read = RealReadPipe(pipe, buffer, length);
  *count = read.value;
  return ToBool({read.ok, read.error});
}

int32_t WriteFile(void* pipe, const void* buffer, uint32_t length, uint32_t* count, void*) {
  const ValueResult<uint32_t> written = RealWritePipe(pipe, buffer, length);
  *count = written.value;
  return ToBool({written.ok, written.error});
}

SeamImport<decltype(CreatePipe)> createPipe("CreatePipe", CreatePipe);
SeamImport<decltype(CloseHandle)> closeHandle("CloseHandle", CloseHandle);
SeamImport<decltype(ReadFile)> readFile("ReadFile", ReadFile);
SeamImport<decltype(WriteFile)> writeFile("WriteFile", WriteFile);

}  // namespace

ValueResult<PipeEnds> WrapMakePipe(uint32_t bufferBytes) {
  PipeEnds ends = {nullptr, nullptr};
  const Result result = FromBool(createPipe.Call(&ends.read, &ends.write, nullptr, bufferBytes));
  return {result.ok, result.error, ends};
}

Result WrapClosePipe(void* pipe) { return FromBool(closeHandle.Call(pipe)); }

ValueResult<uint32_t> WrapReadPipe(void* pipe, void* buffer, uint32_t length) {
  uint32_t count = 0;
  const Result result = FromBool(readFile.Call(pipe, buffer, length, &count, nullptr));
  return {result.ok, result.error, count};
}

ValueResult<uint32_t> WrapWritePipe(void* pipe, const void* buffer, uint32_t length) {
  uint32_t count = 0;
  const Result result = FromBool(writeFile.Call(pipe, buffer, length, &count, nullptr));
  return {result.ok, result.error, count};
}

}  // namespace kiv::test
