// Registration with a utility library that fills the whole output area and returns a failure. The
// test loads it from the folder probe/ first; kivsdu then asks for the name and gets this one.
#include <gtest/gtest.h>

#include "dll/loaded_library.h"
#include "dll/registration_probe.h"
#include "kivsdu_version.h"

namespace {

using kiv::test::kLibraryFile;
using kiv::test::kUtilityFile;
using kiv::test::LoadedLibrary;

TEST(Registration, PassesOneDescriptorAndLoadsWhateverTheResult) {
  LoadedLibrary probe(std::string("probe/") + kUtilityFile);
  ASSERT_NE(probe.handle(), nullptr);
  const auto find = probe.Find<Registration* (*)()>("probeRegistration");
  ASSERT_NE(find, nullptr);
  const Registration* seen = find();

  LoadedLibrary library(kLibraryFile);
  void* const handle = library.handle();
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(seen->inits, 1);
  EXPECT_EQ(seen->module, handle);
  EXPECT_TRUE(seen->outputWasZero);
  EXPECT_EQ(seen->descriptor.callback, nullptr);
  EXPECT_EQ(seen->descriptor.version, KIVSDU_VERSION_WORD);
  EXPECT_EQ(seen->descriptor.zero, 0u);
  EXPECT_NE(seen->descriptor.banner[0], '\0');

  library.Unload();
  EXPECT_EQ(seen->terms, 1);
  EXPECT_EQ(seen->endedModule, handle);
}

}  // namespace
