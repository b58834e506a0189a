/* Time and clocks.
 *
 * Thin fronts over the runtime and the system; what is fixed here is the records, the units and
 * the statuses. Any thread. A context may always be null. */
#ifndef KIVSDU_TIME_H
#define KIVSDU_TIME_H

#include "api.h"
#include "context.h"

/* A broken-down local time, fields as the C runtime gives them. */
typedef struct KivSdLocalTime {
  uint32_t time;    /* low 32 bits of the seconds since 1970 it was made from; 0 marks an empty
                       record */
  uint16_t second;  /* 0 to 59 */
  uint16_t minute;  /* 0 to 59 */
  uint16_t hour;    /* 0 to 23 */
  uint16_t day;     /* of the month, 1 to 31 */
  uint16_t month;   /* 0 to 11 */
  uint16_t year;    /* since 1900 */
  uint16_t weekday; /* 0 is Sunday */
} KivSdLocalTime;

KIV_ASSERT_SIZE(KivSdLocalTime, 20);
KIV_ASSERT_FIELD(KivSdLocalTime, time, 0);
KIV_ASSERT_FIELD(KivSdLocalTime, second, 4);
KIV_ASSERT_FIELD(KivSdLocalTime, minute, 6);
KIV_ASSERT_FIELD(KivSdLocalTime, hour, 8);
KIV_ASSERT_FIELD(KivSdLocalTime, day, 10);
KIV_ASSERT_FIELD(KivSdLocalTime, month, 12);
KIV_ASSERT_FIELD(KivSdLocalTime, year, 14);
KIV_ASSERT_FIELD(KivSdLocalTime, weekday, 16);

typedef struct KivSdUtcTimestamp {
  uint32_t seconds;      /* since 1970, low 32 bits */
  uint32_t microseconds; /* within the second; always a multiple of 1000 */
} KivSdUtcTimestamp;

KIV_ASSERT_SIZE(KivSdUtcTimestamp, 8);
KIV_ASSERT_FIELD(KivSdUtcTimestamp, seconds, 0);
KIV_ASSERT_FIELD(KivSdUtcTimestamp, microseconds, 4);

/* Sleeps and clears the context.
 *
 *   timeMs  milliseconds; 0 gives up the rest of the time slice, 0xFFFFFFFF sleeps for ever */
KIVSDU_API void KivSdSleep(KivSdContext* ctx, uint32_t timeMs);

/* The time the process has run, in the C runtime's clock ticks (CLOCKS_PER_SEC a second).
 *
 *   ticks  must not be null; left alone on failure
 *
 * 0, or KIV_ST_ARGUMENT  ticks is null
 *       KIV_ST_CLOCK     the clock is not available; OS error is errno */
KIVSDU_API uint32_t KivSdClock(KivSdContext* ctx, uint32_t* ticks);

/* The wall clock in whole seconds since 1970, UTC.
 *
 * 0, or KIV_ST_ARGUMENT  seconds is null */
KIVSDU_API uint32_t KivSdTime(KivSdContext* ctx, uint64_t* seconds);

/* Seconds since the system started. The count behind it is 32 bits of milliseconds, so the
 * value falls back to 0 about every 49.7 days.
 *
 * 0, or KIV_ST_ARGUMENT  seconds is null */
KIVSDU_API uint32_t KivSdTimeElapsedOS(KivSdContext* ctx, uint64_t* seconds);

/* Breaks a time down in the local time zone.
 *
 *   seconds  since 1970, UTC
 *   local    must not be null; on a failed conversion it holds the time field alone
 *
 * 0, or KIV_ST_ARGUMENT    local is null
 *       KIV_ST_LOCAL_TIME  the runtime cannot convert the time; OS error is errno */
KIVSDU_API uint32_t KivSdLocalTimeGet(KivSdContext* ctx, int64_t seconds, KivSdLocalTime* local);

/* Formats a local time, such as "Sat Nov 21 13:17:15 2026", without a newline.
 *
 *   local   must not be null; a record whose time field is 0 gives the empty text
 *   length  size of text in bytes, at least 1; 25 holds every text. A shorter one receives the
 *           first length - 1 characters, less any white space at their end
 *   text    must not be null; cleared first
 *
 * 0, or KIV_ST_ARGUMENT     local or text is null, or length is 0
 *       KIV_ST_TIME_STRING  the record holds no time that can be written: a month above 11, a
 *                           weekday above 6, a day, hour, minute or second above 99, or a year
 *                           above 8099 (9999 AD); OS error is errno */
KIVSDU_API uint32_t KivSdTimeStrGet(KivSdContext* ctx, const KivSdLocalTime* local, uint32_t length,
                                    char* text);

/* Formats a time in the local time zone, such as "Sat Nov 21 13:17:15 2026\n": unlike
 * KivSdTimeStrGet it keeps the newline.
 *
 *   seconds  since 1970, UTC
 *   length   size of text in bytes, at least 1; 26 holds every text
 *   text     must not be null; cleared first, then receives at most length - 1 characters
 *
 * 0, or KIV_ST_ARGUMENT     text is null, or length is 0
 *       KIV_ST_TIME_FORMAT  the runtime cannot convert the time; OS error is errno */
KIVSDU_API uint32_t KivSdCTime(KivSdContext* ctx, int64_t seconds, uint32_t length, char* text);

/* The wall clock in UTC with its milliseconds, given as microseconds.
 *
 *   ignored  any value
 *
 * 0, or KIV_ST_ARGUMENT  stamp is null */
KIVSDU_API uint32_t KivSdGetUtcTimestamp(KivSdContext* ctx, uint64_t ignored,
                                         KivSdUtcTimestamp* stamp);

/* A microsecond clock for intervals. The reading is 32 bits wide and wraps about every 71.6
 * minutes: use differences of close readings, modulo 2^32.
 *
 *   ignored  any value; no context is written
 *
 * 0, or KIV_ST_ARGUMENT    microseconds is null
 *       KIV_ST_FAST_TIMER  the system has no such counter */
KIVSDU_API uint32_t KivSdGetFastTimer(const void* ignored, uint32_t* microseconds);

#endif
