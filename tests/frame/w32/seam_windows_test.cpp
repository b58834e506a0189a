// What the binding for Windows does where the library's operations never lead it.
//
// The program links the binding's objects, so that patches change the program's own imports.
#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "os/assertion.h"
#include "os/calendar.h"
#include "os/park.h"
#include "support/import_patch.h"

namespace {

namespace os = kiv::os;

TEST(SeamPark, SignalsAnEventAndTakesAMutexInOneCall) {
  const os::ValueResult<void*> event = os::MakeParkEvent();
  const os::ValueResult<void*> mutex = os::MakeParkMutex();
  ASSERT_TRUE(event.ok && mutex.ok);
  EXPECT_TRUE(os::SignalAndTake(event.value, mutex.value).ok);
  EXPECT_EQ(WaitForSingleObject(event.value, 0), WAIT_OBJECT_0) << "signalled";
  EXPECT_EQ(WaitForSingleObject(event.value, 0), DWORD{WAIT_TIMEOUT}) << "for one thread";
  EXPECT_TRUE(os::ReleaseParkMutex(mutex.value).ok) << "held by this thread";
  EXPECT_FALSE(os::ReleaseParkMutex(mutex.value).ok) << "and held once";
  EXPECT_TRUE(os::CloseParkEvent(event.value).ok);
  const os::Result failed = os::SignalAndTake(nullptr, mutex.value);
  EXPECT_FALSE(failed.ok);
  EXPECT_EQ(failed.error, DWORD{ERROR_INVALID_HANDLE});
  EXPECT_TRUE(os::CloseParkMutex(mutex.value).ok);
}

// The runtime may refuse such a time, and must not end the process.
TEST(SeamCalendar, HasATextOrAnErrorForATimeWithAFieldOutOfRange) {
  const tm valid = {.tm_sec = 1,
                    .tm_min = 2,
                    .tm_hour = 3,
                    .tm_mday = 4,
                    .tm_mon = 5,
                    .tm_year = 126,
                    .tm_wday = 4,
                    .tm_yday = 0,
                    .tm_isdst = 0};
  ASSERT_TRUE(os::TimeText(valid).ok);
  struct Wrong {
    int tm::*field;
    int value;
  };
  for (const Wrong& wrong :
       {Wrong{&tm::tm_sec, -1}, Wrong{&tm::tm_min, -1}, Wrong{&tm::tm_hour, -1},
        Wrong{&tm::tm_mon, -1}, Wrong{&tm::tm_mon, 12}, Wrong{&tm::tm_year, -1},
        Wrong{&tm::tm_wday, -1}, Wrong{&tm::tm_wday, 7}}) {
    tm time = valid;
    time.*wrong.field = wrong.value;
    const os::ValueResult<const char*> text = os::TimeText(time);
    EXPECT_EQ(text.ok, text.value != nullptr);
    if (text.ok) {
      EXPECT_EQ(text.value[std::strlen(text.value) - 1], '\n');
    } else {
      EXPECT_EQ(text.error, uint32_t{EINVAL});
    }
  }
}

// The texts of the last assertion.
std::wstring condition;
std::wstring source;

void NoteAssertion(const wchar_t* text, const wchar_t* file, unsigned) {
  condition = text;
  source = file;
}

TEST(SeamAssertion, CutsWideTextsTo127Characters) {
  const kiv::test::ImportPatch patch("_wassert", reinterpret_cast<void*>(&NoteAssertion));
  for (const size_t length : {126u, 127u, 128u, 1000u}) {
    const size_t kept = length < 127 ? length : 127;
    os::WideAssertionFailed(std::string(length, 'c').c_str(), "sd/source", 12);
    EXPECT_EQ(condition, std::wstring(kept, L'c')) << length;
    EXPECT_EQ(source, L"sd/source");
  }
  os::WideAssertionFailed("\xE4", std::string(128, 's').c_str(), 12);
  EXPECT_EQ(condition, L"\u00E4") << "a byte becomes the character of its number";
  EXPECT_EQ(source, std::wstring(127, L's'));
}

}  // namespace
