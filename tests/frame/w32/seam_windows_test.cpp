// What the binding for Windows does where the library's operations never lead it.
//
// The program links the binding's objects, so that patches change the program's own imports.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "os/assertion.h"
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
