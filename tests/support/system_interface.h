// The types and constants of the system's functions that tests replace (import_patch.h).
//
// Natively these are the ones that the stand-ins have. They carry the names of the Windows interface,
// so that one replacement serves both platforms; a record has only the members that a test uses.
#ifndef KIV_TESTS_SYSTEM_INTERFACE_H
#define KIV_TESTS_SYSTEM_INTERFACE_H

#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// After windows.h, whose types it needs.
#include <sys/timeb.h>

#else

#include <cstddef>
#include <cstdint>

#include "support/last_error.h"

#define WINAPI

using BOOL = int32_t;
using BYTE = uint8_t;
using DWORD = uint32_t;
using HANDLE = void*;
using HKEY = void*;
using HMODULE = void*;
using LPBYTE = uint8_t*;
using LPCSTR = const char*;
using LPDWORD = uint32_t*;
using LPSTR = char*;
using LSTATUS = int32_t;
using PFILETIME = void*;
using PHKEY = void**;
using PSIZE_T = size_t*;
using REGSAM = uint32_t;
using SIZE_T = size_t;
using UINT = uint32_t;
using WORD = uint16_t;

constexpr BOOL FALSE = 0;
constexpr BOOL TRUE = 1;

// ---- Errors ----

constexpr int32_t ERROR_SUCCESS = 0;
constexpr int32_t ERROR_FILE_NOT_FOUND = 2;
constexpr int32_t ERROR_ACCESS_DENIED = 5;
constexpr int32_t ERROR_INVALID_HANDLE = 6;
constexpr int32_t ERROR_NOT_READY = 21;
constexpr int32_t ERROR_GEN_FAILURE = 31;
constexpr int32_t ERROR_MORE_DATA = 234;

inline void SetLastError(uint32_t error) { kiv::test::SetErrors(static_cast<int>(error), error); }

// ---- The machine ----

struct SYSTEM_INFO {
  DWORD dwPageSize;
  DWORD dwNumberOfProcessors;
  DWORD dwProcessorType;
};
using LPSYSTEM_INFO = SYSTEM_INFO*;

struct MEMORYSTATUS {
  DWORD dwLength;
  SIZE_T dwTotalPhys;
  SIZE_T dwAvailPhys;
  SIZE_T dwTotalPageFile;
  SIZE_T dwAvailPageFile;
};
using LPMEMORYSTATUS = MEMORYSTATUS*;

struct MEMORYSTATUSEX {
  DWORD dwLength;
  uint64_t ullTotalPhys;
  uint64_t ullAvailPhys;
  uint64_t ullTotalPageFile;
  uint64_t ullAvailPageFile;
};
using LPMEMORYSTATUSEX = MEMORYSTATUSEX*;

// ---- Settings ----

inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(uintptr_t{0x80000002});

constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_MULTI_SZ = 7;

// ---- Drives ----

constexpr UINT DRIVE_UNKNOWN = 0;
constexpr UINT DRIVE_NO_ROOT_DIR = 1;
constexpr UINT DRIVE_REMOVABLE = 2;
constexpr UINT DRIVE_FIXED = 3;
constexpr UINT DRIVE_REMOTE = 4;
constexpr UINT DRIVE_CDROM = 5;
constexpr UINT DRIVE_RAMDISK = 6;

// ---- Time ----

struct LARGE_INTEGER {
  int64_t QuadPart;
};

struct __timeb64 {
  int64_t time;
  uint16_t millitm;
  int16_t timezone;
  int16_t dstflag;
};

// ---- The console ----

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(UINTPTR_MAX);

constexpr DWORD STD_INPUT_HANDLE = 0xFFFFFFF6;
constexpr DWORD STD_OUTPUT_HANDLE = 0xFFFFFFF5;

constexpr WORD KEY_EVENT = 1;
constexpr WORD MOUSE_EVENT = 2;
constexpr WORD WINDOW_BUFFER_SIZE_EVENT = 4;
constexpr WORD MENU_EVENT = 8;
constexpr WORD FOCUS_EVENT = 16;
constexpr DWORD SHIFT_PRESSED = 0x10;
constexpr DWORD ENHANCED_KEY = 0x100;

struct KEY_EVENT_RECORD {
  BOOL bKeyDown;
  WORD wRepeatCount;
  WORD wVirtualKeyCode;
  WORD wVirtualScanCode;
  struct {
    char AsciiChar;
  } uChar;
  DWORD dwControlKeyState;
};

struct INPUT_RECORD {
  WORD EventType;
  struct {
    KEY_EVENT_RECORD KeyEvent;
  } Event;
};

// ---- Threads, pipes ----

using LPTHREAD_START_ROUTINE = DWORD (*)(void* argument);
struct SECURITY_ATTRIBUTES;
struct OVERLAPPED;

constexpr int32_t ERROR_PIPE_CONNECTED = 535;
constexpr int32_t ERROR_PIPE_LISTENING = 536;

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD PIPE_ACCESS_INBOUND = 1;
constexpr DWORD PIPE_ACCESS_OUTBOUND = 2;
constexpr DWORD PIPE_ACCESS_DUPLEX = 3;
constexpr DWORD FILE_FLAG_FIRST_PIPE_INSTANCE = 0x00080000;
constexpr DWORD PIPE_TYPE_BYTE = 0;
constexpr DWORD PIPE_READMODE_BYTE = 0;
constexpr DWORD PIPE_NOWAIT = 1;
constexpr DWORD PIPE_READMODE_MESSAGE = 2;
constexpr DWORD PIPE_TYPE_MESSAGE = 4;

// Only for the types of the functions.
HANDLE CreateThread(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*);
BOOL CreatePipe(HANDLE*, HANDLE*, SECURITY_ATTRIBUTES*, DWORD);
BOOL ReadFile(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*);
BOOL WriteFile(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*);
BOOL CloseHandle(HANDLE);
void Sleep(DWORD);

// ---- Messages ----

constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000;

#endif

#endif
