// An anonymous pipe of the library.
#ifndef KIV_TESTS_PIPE_H
#define KIV_TESTS_PIPE_H

#include <gtest/gtest.h>

#include "kivsdu/pipe.h"
#include "support/context.h"

namespace kiv::test {

// The destructor closes the ends that the test has not closed.
struct Pipe {
  explicit Pipe(uint32_t bufferBytes = 0) {
    Context ctx;
    CHECK_OK(ctx, KivSdPipeCreate(ctx, &read, &write, bufferBytes));
  }
  ~Pipe() {
    Close(&read);
    Close(&write);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  static void Close(KivHandle* end) {
    if (*end == nullptr) return;
    EXPECT_EQ(KivSdPipeClose(nullptr, end), KIV_ST_OK);
    *end = nullptr;
  }

  KivHandle read = nullptr;
  KivHandle write = nullptr;
};

}  // namespace kiv::test

#endif
