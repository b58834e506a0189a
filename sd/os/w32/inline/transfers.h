// Windows. Declares the system calls itself: the seam's headers do not include <windows.h>.
#ifndef KIV_OS_W32_INLINE_TRANSFERS_H
#define KIV_OS_W32_INLINE_TRANSFERS_H

#include <cstdint>

#include "kivsdu/directio.h"
#include "os/transfers.h"

struct _OVERLAPPED;  // KivSdNoWaitCb has the same layout

extern "C" __declspec(dllimport) unsigned long __stdcall GetLastError(void);
extern "C" __declspec(dllimport) int __stdcall ReadFile(void* file, void* buffer,
                                                        unsigned long sizeBytes,
                                                        unsigned long* count, _OVERLAPPED* record);
extern "C" __declspec(dllimport) int __stdcall WriteFile(void* file, const void* buffer,
                                                         unsigned long sizeBytes,
                                                         unsigned long* count, _OVERLAPPED* record);
extern "C" __declspec(dllimport) unsigned long __stdcall SetFilePointer(void* file, long distance,
                                                                        long* distanceHigh,
                                                                        unsigned long origin);

namespace kiv::os {

inline _OVERLAPPED* SystemRecord(KivSdNoWaitCb* record) {
  return reinterpret_cast<_OVERLAPPED*>(record);
}

inline ValueResult<uint32_t> ReadSystemFile(void* file, void* buffer, uint32_t sizeBytes,
                                            KivSdNoWaitCb* record) {
  unsigned long count = 0;
  const bool ok = ReadFile(file, buffer, sizeBytes, &count, SystemRecord(record)) != 0;
  const uint32_t error = ok ? 0 : GetLastError();
  return {ok, error, count};
}

inline ValueResult<uint32_t> WriteSystemFile(void* file, const void* buffer, uint32_t sizeBytes,
                                             KivSdNoWaitCb* record) {
  unsigned long count = 0;
  const bool ok = WriteFile(file, buffer, sizeBytes, &count, SystemRecord(record)) != 0;
  const uint32_t error = ok ? 0 : GetLastError();
  return {ok, error, count};
}

inline ValueResult<uint32_t> MoveFilePointer(void* file, int32_t distanceBytes, Origin origin) {
  constexpr unsigned long kFailed = 0xFFFFFFFF;
  const unsigned long position =
      SetFilePointer(file, distanceBytes, nullptr, static_cast<uint32_t>(origin));
  if (position != kFailed) return {true, 0, position};
  return {false, GetLastError(), 0};
}

}  // namespace kiv::os

#endif
