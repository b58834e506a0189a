// The error numbers of the platform that tests expect in records or make calls fail with.
#ifndef KIV_TESTS_OS_ERRORS_H
#define KIV_TESTS_OS_ERRORS_H

#include <cerrno>
#include <cstdint>

namespace kiv::test {

#ifdef _WIN32
constexpr uint32_t kOsTooManyPosts = 298;
constexpr uint32_t kOsBadHandle = 6;
constexpr uint32_t kOsBadArgument = 87;
constexpr uint32_t kOsNotFound = 2;
constexpr uint32_t kOsNotOwner = 288;
constexpr uint32_t kOsNameOfOtherKind = 6;
constexpr uint32_t kOsNameTooLong = 206;
constexpr uint32_t kOsNoSuchProcess = 6;
constexpr uint32_t kOsAccessDenied = 5;  // to a process
constexpr uint32_t kOsNoMemory = 8;
constexpr uint32_t kOsBrokenPipe = 109;    // of a read: the other end is closed
constexpr uint32_t kOsNoReader = 232;      // of a write: the other end is closed
constexpr uint32_t kOsPipeClosing = 232;   // the client came and left
constexpr uint32_t kOsNotConnected = 233;  // of a client that was disconnected
constexpr uint32_t kOsPipeBusy = 231;
constexpr uint32_t kOsMoreData = 234;
constexpr uint32_t kOsWaitTimedOut = 121;
constexpr uint32_t kOsNameExists = 183;
constexpr uint32_t kOsBufferTooSmall = 122;
constexpr uint32_t kOsNoSuchPrivilege = 1313;
constexpr uint32_t kOsNoPrivilege = 1314;
constexpr uint32_t kOsLockQuota = 1453;
constexpr uint32_t kOsNoConsole = 6;
constexpr uint32_t kOsModuleMissing = 126;
constexpr uint32_t kOsNoModule = 193;
constexpr uint32_t kOsEntryMissing = 127;
constexpr uint32_t kOsTimeOutOfRange = EINVAL;  // of the runtime's calendar
constexpr uint32_t kOsSharingViolation = 32;
constexpr uint32_t kOsDiskFull = 112;
constexpr uint32_t kOsPathNotFound = 3;
constexpr uint32_t kOsNoMoreFiles = 18;
constexpr uint32_t kOsNegativePosition = 131;
constexpr uint32_t kErrnoSharing = EACCES;
#else
constexpr uint32_t kOsTooManyPosts = EOVERFLOW;
constexpr uint32_t kOsBadHandle = EBADF;
constexpr uint32_t kOsBadArgument = EINVAL;
constexpr uint32_t kOsNotFound = ENOENT;
constexpr uint32_t kOsNotOwner = EPERM;
constexpr uint32_t kOsNameOfOtherKind = EEXIST;
constexpr uint32_t kOsNameTooLong = ENAMETOOLONG;
constexpr uint32_t kOsNoSuchProcess = ESRCH;
constexpr uint32_t kOsAccessDenied = EPERM;
constexpr uint32_t kOsNoMemory = ENOMEM;
constexpr uint32_t kOsBrokenPipe = EPIPE;
constexpr uint32_t kOsNoReader = EPIPE;
constexpr uint32_t kOsPipeClosing = ENODATA;
constexpr uint32_t kOsNotConnected = EPIPE;
constexpr uint32_t kOsPipeBusy = EBUSY;
constexpr uint32_t kOsMoreData = EMSGSIZE;
constexpr uint32_t kOsWaitTimedOut = ETIMEDOUT;
constexpr uint32_t kOsNameExists = EEXIST;
constexpr uint32_t kOsBufferTooSmall = ERANGE;
constexpr uint32_t kOsNoSuchPrivilege = EPERM;
constexpr uint32_t kOsNoPrivilege = EPERM;
constexpr uint32_t kOsLockQuota = ENOMEM;
constexpr uint32_t kOsNoConsole = EBADF;
constexpr uint32_t kOsModuleMissing = ELIBACC;
constexpr uint32_t kOsNoModule = ELIBBAD;
constexpr uint32_t kOsEntryMissing = ENOENT;
constexpr uint32_t kOsTimeOutOfRange = EOVERFLOW;
constexpr uint32_t kOsSharingViolation = EBUSY;
constexpr uint32_t kOsDiskFull = ENOSPC;
constexpr uint32_t kOsPathNotFound = ENOENT;
constexpr uint32_t kOsNoMoreFiles = ENOENT;
constexpr uint32_t kOsNegativePosition = EINVAL;
constexpr uint32_t kErrnoSharing = EBUSY;  // of a share-mode open
#endif

// The client found the pipe free before the server waited for it.
constexpr uint32_t kOsPipeConnected = 535;

}  // namespace kiv::test

#endif
