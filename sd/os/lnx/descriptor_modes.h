// What the binding remembers about the descriptors that it opened. The kernel knows nothing of
// text mode.
//
// A descriptor without an entry is binary: the standard descriptors, those that the host opened,
// and those of other libraries. CloseDescriptor removes an entry. A host that closes a descriptor
// of the library with close() leaves the entry behind, and the next file with that number would
// have its mode; include/kivsdu/file.h says so.
//
// Thread safety: all functions may run on any thread. Relaxed orders suffice: threads that share a
// descriptor coordinate its use.
#ifndef KIV_OS_LNX_DESCRIPTOR_MODES_H
#define KIV_OS_LNX_DESCRIPTOR_MODES_H

#include <cstdint>

namespace kiv::os {

using DescriptorMode = uint16_t;

constexpr DescriptorMode kModeOpened = 0x01;         // the binding opened this descriptor
constexpr DescriptorMode kModeText = 0x02;           // line ends are translated
constexpr DescriptorMode kModeAppend = 0x04;         // every write goes to the end
constexpr DescriptorMode kModeEndSeen = 0x08;        // a text read has met the end mark
constexpr DescriptorMode kModeDeleteOnClose = 0x10;  // the file is removed when it is closed
constexpr DescriptorMode kModeRegular = 0x20;        // a regular file: writing raises no signal
constexpr DescriptorMode kModeHolds = 0x40;          // a byte read too far is kept in the high byte

// Returns false if there is no memory for the entry or the number is too large.
bool RememberDescriptor(int descriptor, DescriptorMode mode);

// 0 if there is no entry.
DescriptorMode ModeOf(int descriptor);

// Both need an entry.
void AddToMode(int descriptor, DescriptorMode bits);
void TakeFromMode(int descriptor, DescriptorMode bits);

// Removes the entry and returns it; 0 if there was none.
DescriptorMode ForgetDescriptor(int descriptor);

}  // namespace kiv::os

#endif
