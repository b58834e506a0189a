// Makes a number of a packed date and time.
#include "kivsdu/path.h"
#include "lease_guard.h"

using namespace kiv;

namespace {

constexpr uint32_t kYearBits = 0xFE00;
constexpr uint32_t kDayBits = 31;
constexpr uint32_t kHourBits = 0xF800;
constexpr uint32_t kMinuteBits = 0x7E0;
constexpr uint32_t kTwoSecondBits = 31;
constexpr uint32_t kFirstYear = 1970;
constexpr uint32_t kLeapYearsBefore = 492;

}  // namespace

// Compatibility: the result is not a real time. Years, hours and minutes are used without shifting
// them down, the month is left out, leap years are a quarter of the unshifted years, and everything
// wraps at 32 bits. Hosts have such numbers in their files and compare new ones with them.
uint32_t KivSdTimetFromDOS(uint16_t time, uint16_t date) {
  RunLeaseGuard();
  const uint32_t years = date & kYearBits;
  const uint32_t leapYears = (years >> 2) - kLeapYearsBefore;
  const uint32_t otherYears = years - leapYears - kFirstYear;
  const uint32_t days = leapYears * 366 + otherYears * 365 + (date & kDayBits) - 1;
  const uint32_t hours = (time & kHourBits) + days * 24;
  const uint32_t minutes = hours * 60 + (time & kMinuteBits);
  return (minutes * 30 + (time & kTwoSecondBits)) * 2;
}
