// The part of the Windows headers that sd/os/w32 uses.
#ifndef KIV_MSVC_WINDOWS_H
#define KIV_MSVC_WINDOWS_H

#include <stdarg.h>
#include <stddef.h>

#define WINAPI __stdcall
#define TRUE 1
#define FALSE 0

typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef unsigned long DWORD;
typedef char CHAR;
typedef wchar_t WCHAR;
typedef short SHORT;
typedef int INT;
typedef unsigned int UINT;
typedef long LONG;
typedef unsigned __int64 ULONGLONG;
typedef unsigned __int64 DWORDLONG;
typedef unsigned __int64 SIZE_T;
typedef unsigned __int64 ULONG_PTR;
typedef __int64 LONGLONG;
typedef LONG LSTATUS;
typedef void* LPVOID;
typedef void* PVOID;
typedef void* HANDLE;
typedef struct HKEY__* HKEY;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef __int64(WINAPI* FARPROC)();
typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID argument);

// ---- Records ----

typedef union _LARGE_INTEGER {
  LONGLONG QuadPart;
} LARGE_INTEGER;

typedef struct _FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
} FILETIME;

typedef struct _SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
} SECURITY_ATTRIBUTES;

typedef struct _OVERLAPPED {
  ULONG_PTR Internal;
  ULONG_PTR InternalHigh;
  DWORD Offset;
  DWORD OffsetHigh;
  HANDLE hEvent;
} OVERLAPPED;

typedef struct _WIN32_FIND_DATAA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  CHAR cFileName[260];
  CHAR cAlternateFileName[14];
} WIN32_FIND_DATAA;

typedef struct _CRITICAL_SECTION {
  void* DebugInfo;
  LONG LockCount;
  LONG RecursionCount;
  HANDLE OwningThread;
  HANDLE LockSemaphore;
  ULONG_PTR SpinCount;
} CRITICAL_SECTION;

typedef struct _SYSTEM_INFO {
  WORD wProcessorArchitecture;
  WORD wReserved;
  DWORD dwPageSize;
  LPVOID lpMinimumApplicationAddress;
  LPVOID lpMaximumApplicationAddress;
  ULONG_PTR dwActiveProcessorMask;
  DWORD dwNumberOfProcessors;
  DWORD dwProcessorType;
  DWORD dwAllocationGranularity;
  WORD wProcessorLevel;
  WORD wProcessorRevision;
} SYSTEM_INFO;

typedef struct _MEMORYSTATUS {
  DWORD dwLength;
  DWORD dwMemoryLoad;
  SIZE_T dwTotalPhys;
  SIZE_T dwAvailPhys;
  SIZE_T dwTotalPageFile;
  SIZE_T dwAvailPageFile;
  SIZE_T dwTotalVirtual;
  SIZE_T dwAvailVirtual;
} MEMORYSTATUS;

typedef struct _MEMORYSTATUSEX {
  DWORD dwLength;
  DWORD dwMemoryLoad;
  DWORDLONG ullTotalPhys;
  DWORDLONG ullAvailPhys;
  DWORDLONG ullTotalPageFile;
  DWORDLONG ullAvailPageFile;
  DWORDLONG ullTotalVirtual;
  DWORDLONG ullAvailVirtual;
  DWORDLONG ullAvailExtendedVirtual;
} MEMORYSTATUSEX;

typedef struct _OSVERSIONINFOA {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  CHAR szCSDVersion[128];
} OSVERSIONINFOA;

typedef struct _KEY_EVENT_RECORD {
  BOOL bKeyDown;
  WORD wRepeatCount;
  WORD wVirtualKeyCode;
  WORD wVirtualScanCode;
  union {
    WCHAR UnicodeChar;
    CHAR AsciiChar;
  } uChar;
  DWORD dwControlKeyState;
} KEY_EVENT_RECORD;

typedef struct _INPUT_RECORD {
  WORD EventType;
  union {
    KEY_EVENT_RECORD KeyEvent;
  } Event;
} INPUT_RECORD;

// ---- Constants ----

#define ERROR_SUCCESS 0L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_NO_MORE_FILES 18L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_HANDLE_EOF 38L
#define ERROR_DISK_FULL 112L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_INVALID_MODULETYPE 190L
#define ERROR_BAD_EXE_FORMAT 193L
#define ERROR_FILENAME_EXCED_RANGE 206L
#define ERROR_NO_DATA 232L
#define ERROR_TOO_MANY_POSTS 298L
#define ERROR_PIPE_CONNECTED 535L
#define ERROR_IO_PENDING 997L
#define ERROR_NO_SUCH_PRIVILEGE 1313L
#define ERROR_PRIVILEGE_NOT_HELD 1314L
#define ERROR_WORKING_SET_QUOTA 1453L

#define INVALID_HANDLE_VALUE ((HANDLE)(__int64)-1)
#define INVALID_FILE_SIZE ((DWORD)0xFFFFFFFF)
#define TLS_OUT_OF_INDEXES ((DWORD)0xFFFFFFFF)
#define INFINITE 0xFFFFFFFF
#define WAIT_OBJECT_0 0x00000000L
#define WAIT_ABANDONED 0x00000080L
#define WAIT_TIMEOUT 258L
#define WAIT_FAILED ((DWORD)0xFFFFFFFF)
#define GENERIC_WRITE 0x40000000L
#define SEMAPHORE_ALL_ACCESS 0x1F0003
#define MUTEX_ALL_ACCESS 0x1F0001
#define DUPLICATE_SAME_ACCESS 0x00000002
#define DLL_PROCESS_ATTACH 1
#define DLL_PROCESS_DETACH 0
#define SEM_FAILCRITICALERRORS 0x0001
#define LOAD_WITH_ALTERED_SEARCH_PATH 0x00000008

#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_SHARE_DELETE 0x00000004
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010
#define FILE_FLAG_NO_BUFFERING 0x20000000
#define FILE_FLAG_OVERLAPPED 0x40000000
#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2
#define OPEN_ALWAYS 4
#define FILE_MAP_WRITE 0x0002
#define FILE_MAP_READ 0x0004

#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define MEM_COMMIT 0x00001000
#define MEM_RELEASE 0x00008000
#define SEC_RESERVE 0x04000000
#define SEC_COMMIT 0x08000000

#define DRIVE_NO_ROOT_DIR 1
#define DRIVE_REMOVABLE 2
#define DRIVE_FIXED 3
#define DRIVE_REMOTE 4
#define DRIVE_CDROM 5
#define DRIVE_RAMDISK 6

#define STD_INPUT_HANDLE ((DWORD)-10)
#define STD_OUTPUT_HANDLE ((DWORD)-11)
#define KEY_EVENT 0x0001
#define ENHANCED_KEY 0x0100

#define THREAD_PRIORITY_HIGHEST 2
#define THREAD_PRIORITY_ERROR_RETURN 0x7FFFFFFF

#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000
#define FORMAT_MESSAGE_ARGUMENT_ARRAY 0x00002000

#define HKEY_LOCAL_MACHINE ((HKEY)(ULONG_PTR)(LONG)0x80000002)
#define KEY_READ 0x20019
#define REG_MULTI_SZ 7
#define SECURITY_DESCRIPTOR_REVISION 1
#define SECURITY_DESCRIPTOR_MIN_LENGTH 40

// ---- Functions ----

#define KIV_CALL extern "C" __declspec(dllimport)

KIV_CALL DWORD WINAPI GetLastError();
KIV_CALL void WINAPI SetLastError(DWORD error);
KIV_CALL UINT WINAPI SetErrorMode(UINT mode);
KIV_CALL BOOL WINAPI CloseHandle(HANDLE object);
KIV_CALL BOOL WINAPI DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess,
                                     HANDLE* target, DWORD access, BOOL inherit, DWORD options);

KIV_CALL HANDLE WINAPI CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manual, BOOL signalled,
                                    const char* name);
KIV_CALL BOOL WINAPI SetEvent(HANDLE event);
KIV_CALL BOOL WINAPI ResetEvent(HANDLE event);
KIV_CALL HANDLE WINAPI CreateMutexA(SECURITY_ATTRIBUTES* attributes, BOOL owned, const char* name);
KIV_CALL HANDLE WINAPI OpenMutexA(DWORD access, BOOL inherit, const char* name);
KIV_CALL BOOL WINAPI ReleaseMutex(HANDLE mutex);
KIV_CALL HANDLE WINAPI CreateSemaphoreA(SECURITY_ATTRIBUTES* attributes, LONG count, LONG maximum,
                                        const char* name);
KIV_CALL HANDLE WINAPI OpenSemaphoreA(DWORD access, BOOL inherit, const char* name);
KIV_CALL BOOL WINAPI ReleaseSemaphore(HANDLE semaphore, LONG count, LONG* previous);
KIV_CALL DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD timeMs);
KIV_CALL DWORD WINAPI SignalObjectAndWait(HANDLE signalled, HANDLE object, DWORD timeMs,
                                          BOOL alertable);
KIV_CALL void WINAPI InitializeCriticalSection(CRITICAL_SECTION* section);
KIV_CALL void WINAPI EnterCriticalSection(CRITICAL_SECTION* section);
KIV_CALL void WINAPI LeaveCriticalSection(CRITICAL_SECTION* section);
KIV_CALL void WINAPI DeleteCriticalSection(CRITICAL_SECTION* section);

KIV_CALL HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES* attributes, SIZE_T stackBytes,
                                    LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD flags,
                                    DWORD* id);
KIV_CALL __declspec(noreturn) void WINAPI ExitThread(DWORD code);
KIV_CALL HANDLE WINAPI GetCurrentThread();
KIV_CALL DWORD WINAPI GetCurrentThreadId();
KIV_CALL int WINAPI GetThreadPriority(HANDLE thread);
KIV_CALL BOOL WINAPI SetThreadPriority(HANDLE thread, int priority);
KIV_CALL DWORD WINAPI SuspendThread(HANDLE thread);
KIV_CALL DWORD WINAPI ResumeThread(HANDLE thread);
KIV_CALL void WINAPI Sleep(DWORD timeMs);
KIV_CALL DWORD WINAPI TlsAlloc();
KIV_CALL BOOL WINAPI TlsFree(DWORD slot);
KIV_CALL LPVOID WINAPI TlsGetValue(DWORD slot);
KIV_CALL BOOL WINAPI TlsSetValue(DWORD slot, LPVOID value);
KIV_CALL HANDLE WINAPI GetCurrentProcess();
KIV_CALL DWORD WINAPI GetCurrentProcessId();
KIV_CALL BOOL WINAPI TerminateProcess(HANDLE process, UINT code);
KIV_CALL DWORD WINAPI GetPriorityClass(HANDLE process);
KIV_CALL BOOL WINAPI SetPriorityClass(HANDLE process, DWORD priorityClass);
KIV_CALL BOOL WINAPI GetProcessWorkingSetSize(HANDLE process, SIZE_T* minimum, SIZE_T* maximum);
KIV_CALL BOOL WINAPI SetProcessWorkingSetSize(HANDLE process, SIZE_T minimum, SIZE_T maximum);

KIV_CALL LPVOID WINAPI VirtualAlloc(LPVOID address, SIZE_T size, DWORD type, DWORD protection);
KIV_CALL BOOL WINAPI VirtualFree(LPVOID address, SIZE_T size, DWORD type);
KIV_CALL BOOL WINAPI VirtualLock(LPVOID address, SIZE_T size);
KIV_CALL BOOL WINAPI VirtualUnlock(LPVOID address, SIZE_T size);
KIV_CALL HANDLE WINAPI CreateFileMappingA(HANDLE file, SECURITY_ATTRIBUTES* attributes,
                                          DWORD protection, DWORD sizeHigh, DWORD sizeLow,
                                          const char* name);
KIV_CALL HANDLE WINAPI OpenFileMappingA(DWORD access, BOOL inherit, const char* name);
KIV_CALL LPVOID WINAPI MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh,
                                     DWORD offsetLow, SIZE_T size);
KIV_CALL BOOL WINAPI UnmapViewOfFile(const void* view);

KIV_CALL HANDLE WINAPI CreateFileA(const char* path, DWORD access, DWORD share,
                                   SECURITY_ATTRIBUTES* attributes, DWORD disposition, DWORD flags,
                                   HANDLE model);
KIV_CALL BOOL WINAPI DeleteFileA(const char* path);
KIV_CALL BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, DWORD* count,
                              OVERLAPPED* record);
KIV_CALL BOOL WINAPI WriteFile(HANDLE file, const void* buffer, DWORD size, DWORD* count,
                               OVERLAPPED* record);
KIV_CALL BOOL WINAPI GetOverlappedResult(HANDLE file, OVERLAPPED* record, DWORD* count, BOOL wait);
KIV_CALL DWORD WINAPI SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD origin);
KIV_CALL BOOL WINAPI SetEndOfFile(HANDLE file);
KIV_CALL DWORD WINAPI GetFileSize(HANDLE file, DWORD* high);
KIV_CALL DWORD WINAPI GetFullPathNameA(const char* path, DWORD size, char* buffer, char** name);
KIV_CALL HANDLE WINAPI FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* found);
KIV_CALL BOOL WINAPI FindNextFileA(HANDLE search, WIN32_FIND_DATAA* found);
KIV_CALL BOOL WINAPI FindClose(HANDLE search);
KIV_CALL BOOL WINAPI CreateHardLinkA(const char* made, const char* existing,
                                     SECURITY_ATTRIBUTES* attributes);
KIV_CALL UINT WINAPI GetDriveTypeA(const char* root);
KIV_CALL DWORD WINAPI GetLogicalDrives();
KIV_CALL BOOL WINAPI GetDiskFreeSpaceA(const char* root, DWORD* sectorsPerCluster,
                                       DWORD* bytesPerSector, DWORD* freeClusters, DWORD* clusters);
KIV_CALL BOOL WINAPI GetVolumeInformationA(const char* root, char* label, DWORD labelBytes,
                                           DWORD* serial, DWORD* longestName, DWORD* flags,
                                           char* fileSystem, DWORD fileSystemBytes);

KIV_CALL BOOL WINAPI CreatePipe(HANDLE* read, HANDLE* write, SECURITY_ATTRIBUTES* attributes,
                                DWORD size);
KIV_CALL HANDLE WINAPI CreateNamedPipeA(const char* name, DWORD openMode, DWORD pipeMode,
                                        DWORD maximum, DWORD outBytes, DWORD inBytes,
                                        DWORD timeoutMs, SECURITY_ATTRIBUTES* attributes);
KIV_CALL BOOL WINAPI ConnectNamedPipe(HANDLE pipe, OVERLAPPED* record);
KIV_CALL BOOL WINAPI DisconnectNamedPipe(HANDLE pipe);
KIV_CALL BOOL WINAPI PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD size, DWORD* read,
                                   DWORD* available, DWORD* left);
KIV_CALL BOOL WINAPI WaitNamedPipeA(const char* name, DWORD timeoutMs);

KIV_CALL void WINAPI GetSystemInfo(SYSTEM_INFO* info);
KIV_CALL void WINAPI GlobalMemoryStatus(MEMORYSTATUS* status);
KIV_CALL BOOL WINAPI GlobalMemoryStatusEx(MEMORYSTATUSEX* status);
KIV_CALL DWORD WINAPI GetVersion();
KIV_CALL BOOL WINAPI GetVersionExA(OSVERSIONINFOA* version);
KIV_CALL DWORD WINAPI GetTickCount();
KIV_CALL UINT WINAPI GetWindowsDirectoryA(char* buffer, UINT size);
KIV_CALL BOOL WINAPI QueryPerformanceCounter(LARGE_INTEGER* count);
KIV_CALL BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER* frequency);
KIV_CALL HANDLE WINAPI GetStdHandle(DWORD which);
KIV_CALL BOOL WINAPI PeekConsoleInputA(HANDLE input, INPUT_RECORD* records, DWORD size,
                                       DWORD* count);
KIV_CALL BOOL WINAPI ReadConsoleInputA(HANDLE input, INPUT_RECORD* records, DWORD size,
                                       DWORD* count);
KIV_CALL HMODULE WINAPI LoadLibraryExA(const char* path, HANDLE file, DWORD flags);
KIV_CALL BOOL WINAPI FreeLibrary(HMODULE module);
KIV_CALL FARPROC WINAPI GetProcAddress(HMODULE module, const char* name);
KIV_CALL HMODULE WINAPI GetModuleHandleA(const char* name);
KIV_CALL DWORD WINAPI GetModuleFileNameA(HMODULE module, char* buffer, DWORD size);
KIV_CALL DWORD WINAPI FormatMessageA(DWORD flags, const void* source, DWORD message, DWORD language,
                                     char* buffer, DWORD size, va_list* arguments);

KIV_CALL BOOL WINAPI GetUserNameA(char* buffer, DWORD* size);
KIV_CALL BOOL WINAPI InitializeSecurityDescriptor(void* descriptor, DWORD revision);
KIV_CALL BOOL WINAPI SetSecurityDescriptorDacl(void* descriptor, BOOL present, void* list,
                                               BOOL defaulted);
KIV_CALL LSTATUS WINAPI RegOpenKeyExA(HKEY key, const char* path, DWORD options, DWORD access,
                                      HKEY* opened);
KIV_CALL LSTATUS WINAPI RegQueryInfoKeyA(HKEY key, char* className, DWORD* classBytes,
                                         DWORD* reserved, DWORD* keys, DWORD* longestKey,
                                         DWORD* longestClass, DWORD* values, DWORD* longestName,
                                         DWORD* longestValue, DWORD* descriptorBytes,
                                         FILETIME* written);
KIV_CALL LSTATUS WINAPI RegQueryValueExA(HKEY key, const char* name, DWORD* reserved, DWORD* type,
                                         BYTE* data, DWORD* size);
KIV_CALL LSTATUS WINAPI RegCloseKey(HKEY key);

#endif
