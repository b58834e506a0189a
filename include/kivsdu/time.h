/* Time and clocks. A context may always be null. Any thread. */
#ifndef KIVSDU_TIME_H
#define KIVSDU_TIME_H

#include "api.h"
#include "context.h"

/* A broken-down local time. The fields are those of the C runtime. */
typedef struct KivSdLocalTime {
  uint32_t time;    /* low 32 bits of the time in seconds since 1970; 0 marks an empty record */
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

/* Sleeps. The context receives {0, 0}.
 *
 *   timeMs  milliseconds; 0 yields the rest of the time slice, 0xFFFFFFFF sleeps forever */
KIVSDU_API void KivSdSleep(KivSdContext* ctx, uint32_t timeMs);

/* Returns the time since the process started, in the C runtime's clock ticks (CLOCKS_PER_SEC in a
 * second). On Linux it is the processor time that the process has used.
 *
 *   ticks  receives the time; unchanged on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  ticks is null
 *       KIV_ST_CLOCK     the clock is not available. With the universal C runtime, always once the
 *                        process has run for 24.8 days: use KivSdTimeElapsedOS or KivSdTime
 * OS error: errno. */
KIVSDU_API uint32_t KivSdClock(KivSdContext* ctx, uint32_t* ticks);

/* Returns the wall clock in whole seconds since 1970, UTC.
 *
 * 0, or KIV_ST_ARGUMENT  seconds is null */
KIVSDU_API uint32_t KivSdTime(KivSdContext* ctx, uint64_t* seconds);

/* Returns the seconds since the system started. The system counts milliseconds in 32 bits: the
 * value returns to 0 about every 49.7 days.
 *
 * 0, or KIV_ST_ARGUMENT  seconds is null */
KIVSDU_API uint32_t KivSdTimeElapsedOS(KivSdContext* ctx, uint64_t* seconds);

/* Converts a time into the fields of the local time zone.
 *
 *   seconds  since 1970, UTC
 *   local    receives the fields; must not be null. If the conversion fails, only its time field is
 *            set
 *
 * 0, or KIV_ST_ARGUMENT    local is null
 *       KIV_ST_LOCAL_TIME  the runtime cannot convert the time
 * OS error: errno. */
KIVSDU_API uint32_t KivSdLocalTimeGet(KivSdContext* ctx, int64_t seconds, KivSdLocalTime* local);

/* Formats a local time, such as "Sat Nov 21 13:17:15 2026", without a newline.
 *
 *   local   must not be null. If its time field is 0, the text is empty
 *   length  size of text in bytes, at least 1. 25 bytes hold every text. A shorter buffer receives
 *           the first length - 1 characters, without white space at their end
 *   text    zeroed, then receives the text; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     local or text is null, or length is 0
 *       KIV_ST_TIME_STRING  a field is out of range: a month above 11, a weekday above 6, a day,
 *                           hour, minute or second above 99, or a year above 8099 (9999 AD)
 * OS error: errno. */
KIVSDU_API uint32_t KivSdTimeStrGet(KivSdContext* ctx, const KivSdLocalTime* local, uint32_t length,
                                    char* text);

/* Formats a time in the local time zone, such as "Sat Nov 21 13:17:15 2026\n". Unlike
 * KivSdTimeStrGet, it keeps the newline.
 *
 *   seconds  since 1970, UTC
 *   length   size of text in bytes, at least 1. 26 bytes hold every text; a shorter buffer receives
 *            the first length - 1 characters
 *   text     zeroed, then receives the text; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     text is null, or length is 0
 *       KIV_ST_TIME_FORMAT  the runtime cannot convert the time
 * OS error: errno. */
KIVSDU_API uint32_t KivSdCTime(KivSdContext* ctx, int64_t seconds, uint32_t length, char* text);

/* Returns the wall clock in UTC, in seconds and microseconds. The resolution is a millisecond.
 *
 *   ignored  any value
 *   stamp    receives the time; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  stamp is null */
KIVSDU_API uint32_t KivSdGetUtcTimestamp(KivSdContext* ctx, uint64_t ignored,
                                         KivSdUtcTimestamp* stamp);

/* Returns a reading of a microsecond clock for intervals. The reading has 32 bits and wraps about
 * every 71.6 minutes: use the difference of two close readings, modulo 2^32. A product of the
 * counter wraps too, every 21 days at 10 MHz and every 213 days on Linux: one difference across that
 * moment is wrong.
 *
 *   ignored       any value; no context is written
 *   microseconds  receives the reading; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    microseconds is null
 *       KIV_ST_FAST_TIMER  the system has no such counter */
KIVSDU_API uint32_t KivSdGetFastTimer(const void* ignored, uint32_t* microseconds);

#endif
