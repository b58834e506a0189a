// A module that kiv_needing depends on.
#include <cstdint>

extern "C" __declspec(dllexport) uint32_t NeededAnswer() { return 42; }
