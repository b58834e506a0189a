#include "os/pipes.h"

#include "os/w32/win32.h"

namespace kiv::os {

const uint32_t kErrorPipeClosing = ERROR_NO_DATA;

ValueResult<PipeEnds> MakePipe(uint32_t bufferBytes) {
  HANDLE read = nullptr;
  HANDLE write = nullptr;
  const Result result = FromBool(CreatePipe(&read, &write, nullptr, bufferBytes));
  return {result.ok, result.error, {read, write}};
}

Result ClosePipe(void* pipe) { return FromBool(CloseHandle(pipe)); }

ValueResult<uint32_t> ReadPipe(void* pipe, void* buffer, uint32_t length) {
  DWORD count = 0;
  const Result result = FromBool(ReadFile(pipe, buffer, length, &count, nullptr));
  return {result.ok, result.error, count};
}

ValueResult<uint32_t> WritePipe(void* pipe, const void* buffer, uint32_t length) {
  DWORD count = 0;
  const Result result = FromBool(WriteFile(pipe, buffer, length, &count, nullptr));
  return {result.ok, result.error, count};
}

}  // namespace kiv::os
