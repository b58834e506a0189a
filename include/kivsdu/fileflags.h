/* Flag words of the system that several families pass on: direct I/O (directio.h), pipes (pipe.h),
 * found files (filesearch.h) and positions in files (file.h).
 *
 * The values are those of Windows, and part of this interface on every platform. docs/linux.md says
 * which of them Linux refuses. */
#ifndef KIVSDU_FILEFLAGS_H
#define KIVSDU_FILEFLAGS_H

/* Access rights that an open asks for. Add them up to read and write. */
#define KIV_ACCESS_NONE 0x0u /* only queries */
#define KIV_ACCESS_READ 0x80000000u
#define KIV_ACCESS_WRITE 0x40000000u

/* Share modes: what others may do with the file while it is open. */
#define KIV_SHARE_NONE 0x0u
#define KIV_SHARE_READ 0x1u
#define KIV_SHARE_WRITE 0x2u
#define KIV_SHARE_DELETE 0x4u /* remove or rename it */
#define KIV_SHARE_ALL 0x7u

/* Dispositions: what an open does if the file exists, and if it does not. */
#define KIV_DISPOSITION_CREATE_NEW 1u        /* fails if it exists; else creates it */
#define KIV_DISPOSITION_CREATE_ALWAYS 2u     /* truncates it; else creates it */
#define KIV_DISPOSITION_OPEN_EXISTING 3u     /* opens it; else fails */
#define KIV_DISPOSITION_OPEN_ALWAYS 4u       /* opens it; else creates it */
#define KIV_DISPOSITION_TRUNCATE_EXISTING 5u /* truncates it; else fails */

/* Attributes of a file: of a new one, and of one that a search found. */
#define KIV_ATTRIBUTE_READ_ONLY 0x1u
#define KIV_ATTRIBUTE_HIDDEN 0x2u
#define KIV_ATTRIBUTE_SYSTEM 0x4u
#define KIV_ATTRIBUTE_DIRECTORY 0x10u
#define KIV_ATTRIBUTE_ARCHIVE 0x20u    /* changed since the last backup */
#define KIV_ATTRIBUTE_NORMAL 0x80u     /* no other attribute */
#define KIV_ATTRIBUTE_TEMPORARY 0x100u /* kept in memory while there is room */

/* Flags of an open. They share a word with the attributes. */
#define KIV_OPEN_WRITE_THROUGH 0x80000000u  /* a write ends when the device has the data */
#define KIV_OPEN_OVERLAPPED 0x40000000u     /* transfers may go on after the call */
#define KIV_OPEN_UNBUFFERED 0x20000000u     /* bypasses the system's cache; directio.h adds it */
#define KIV_OPEN_RANDOM_ACCESS 0x10000000u  /* a hint */
#define KIV_OPEN_SEQUENTIAL_SCAN 0x8000000u /* a hint */
#define KIV_OPEN_DELETE_ON_CLOSE 0x4000000u /* removes the file with its last handle */
#define KIV_OPEN_IDENTIFY_ONLY 0x110000u    /* a pipe's server cannot act in the client's name */

/* Origins of a seek. */
#define KIV_SEEK_START 0u
#define KIV_SEEK_POSITION 1u
#define KIV_SEEK_END 2u

#endif
