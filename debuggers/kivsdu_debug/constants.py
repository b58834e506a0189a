"""Constants of the library that its debug symbols do not have. A test compares them with the
sources."""

kQuickLists = 20
kBins = 32
kLockedHeapIdentifier = 6005
kSpareHeapIndex = 4095
kShortHeapIndex = 0x7FFFFFFF
kBlockHeaderBytes = 24
kMinPayloadBytes = 24
kMinFreeBytes = 40
kLargeHeaderBytes = 32
kMaxThreadHeaps = 64
kSlotNumberBits = 20
kSlotsPerChunk = 256
kKindBits = 8
kChunkLock = 0
kMembersPerChunk = 4
