// Registration with a utility library that fills the whole output area and returns a failure. The
// test loads it from the folder probe/ first; kivsdu.dll then asks for the name and gets this one.
#include "dll/registration_probe.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "kivsdu_version.h"

namespace {

TEST(Registration, PassesOneDescriptorAndLoadsWhateverTheResult) {
  HMODULE probe = LoadLibraryA(KIV_PROBE_FOLDER "\\kivutlu.dll");
  ASSERT_NE(probe, nullptr) << GetLastError();
  const auto find = reinterpret_cast<Registration* (*)()>(
      reinterpret_cast<void*>(GetProcAddress(probe, "probeRegistration")));
  ASSERT_NE(find, nullptr);
  const Registration* seen = find();

  HMODULE library = LoadLibraryA("kivsdu.dll");
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(seen->inits, 1);
  EXPECT_EQ(seen->module, library);
  EXPECT_TRUE(seen->outputWasZero);
  EXPECT_EQ(seen->descriptor.callback, nullptr);
  EXPECT_EQ(seen->descriptor.version, KIVSDU_VERSION_WORD);
  EXPECT_EQ(seen->descriptor.zero, 0u);
  EXPECT_NE(seen->descriptor.banner[0], '\0');

  EXPECT_TRUE(FreeLibrary(library));
  EXPECT_EQ(seen->terms, 1);
  EXPECT_EQ(seen->endedModule, library);
}

}  // namespace
