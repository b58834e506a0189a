#include "os/lnx/text_mode.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "os/lnx/descriptor_modes.h"
#include "os/lnx/raw_transfers.h"

namespace kiv::os {
namespace {

constexpr char kLineFeed = 10;
constexpr char kCarriageReturn = 13;
constexpr char kEndMark = 26;

// ---- Reading ----

bool HasPosition(int descriptor) { return lseek(descriptor, 0, SEEK_CUR) != -1; }

void KeepByte(int descriptor, char byte) {
  const auto high = static_cast<DescriptorMode>(static_cast<unsigned char>(byte) << 8);
  AddToMode(descriptor, static_cast<DescriptorMode>(high | kModeHolds));
}

// Reads bytes as they are, the kept byte first.
int64_t ReadBytes(int descriptor, char* buffer, size_t length) {
  const DescriptorMode mode = ModeOf(descriptor);
  if ((mode & kModeHolds) == 0) return ReadRaw(descriptor, buffer, length);
  TakeFromMode(descriptor, static_cast<DescriptorMode>(0xFF00 | kModeHolds));
  buffer[0] = static_cast<char>(mode >> 8);
  if (length == 1) return 1;
  const int64_t more = ReadRaw(descriptor, buffer + 1, length - 1);
  return more == -1 ? 1 : more + 1;
}

// Decides what a CR at the end of a read becomes, by the next byte of the file. `alone`: the read
// has returned nothing else. Returns the count of bytes stored, 0 or 1.
size_t TranslateLastReturn(int descriptor, char* out, bool alone) {
  char next = 0;
  *out = kCarriageReturn;
  if (ReadRaw(descriptor, &next, 1) != 1) return 1;
  const bool endsLine = next == kLineFeed;
  if (!HasPosition(descriptor)) {
    if (endsLine) {
      *out = kLineFeed;
    } else {
      KeepByte(descriptor, next);
    }
    return 1;
  }
  // A read that returned no byte would look like the end of the file.
  if (endsLine && alone) {
    *out = kLineFeed;
    return 1;
  }
  lseek(descriptor, -1, SEEK_CUR);
  return endsLine ? 0 : 1;
}

// Translates in place and returns the new count.
size_t TranslateRead(int descriptor, char* bytes, size_t count) {
  size_t out = 0;
  for (size_t in = 0; in < count; ++in) {
    if (bytes[in] == kEndMark) {
      AddToMode(descriptor, kModeEndSeen);
      break;
    }
    if (bytes[in] != kCarriageReturn) {
      bytes[out++] = bytes[in];
    } else if (in + 1 == count) {
      out += TranslateLastReturn(descriptor, bytes + out, out == 0);
    } else if (bytes[in + 1] != kLineFeed) {
      bytes[out++] = kCarriageReturn;
    }
  }
  return out;
}

// ---- Writing ----

// Bytes of the file for a part of the text.
struct Piece {
  static constexpr size_t kMost = 4096;

  char bytes[2 * kMost];
  size_t count = 0;  // bytes of the file
  size_t taken = 0;  // bytes of the text

  Piece(const char* text, size_t length) {
    for (; taken < length && taken < kMost; ++taken) {
      if (text[taken] == kLineFeed) bytes[count++] = kCarriageReturn;
      bytes[count++] = text[taken];
    }
  }

  // Bytes of the text that the first `written` bytes of the file hold completely.
  size_t TakenBy(size_t written, const char* text) const {
    size_t inFile = 0;
    for (size_t i = 0; i < taken; ++i) {
      inFile += text[i] == kLineFeed ? 2 : 1;
      if (inFile > written) return i;
    }
    return taken;
  }
};

int64_t WriteBytes(int descriptor, DescriptorMode mode, const char* bytes, size_t length) {
  if ((mode & kModeAppend) != 0) return AppendRaw(descriptor, bytes, length);
  if ((mode & kModeRegular) != 0) return WriteRaw(descriptor, bytes, length);
  return WriteRawWithoutSignal(descriptor, bytes, length);
}

}  // namespace

int64_t ReadText(int descriptor, char* buffer, size_t length) {
  if (length == 0 || (ModeOf(descriptor) & kModeEndSeen) != 0) return 0;
  const int64_t count = ReadBytes(descriptor, buffer, length);
  if (count <= 0) return count;
  return static_cast<int64_t>(TranslateRead(descriptor, buffer, static_cast<size_t>(count)));
}

int64_t WriteText(int descriptor, const char* text, size_t length) {
  const DescriptorMode mode = ModeOf(descriptor);
  size_t done = 0;
  while (done < length) {
    const Piece piece(text + done, length - done);
    const int64_t written = WriteBytes(descriptor, mode, piece.bytes, piece.count);
    if (written == -1) return done == 0 ? -1 : static_cast<int64_t>(done);
    const size_t taken = piece.TakenBy(static_cast<size_t>(written), text + done);
    done += taken;
    if (taken < piece.taken) break;
  }
  if (done != 0 || length == 0) return static_cast<int64_t>(done);
  errno = ENOSPC;
  return -1;
}

}  // namespace kiv::os
