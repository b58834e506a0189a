// A module that another one needs.
#include <cstdint>

extern "C" __declspec(dllexport) uint32_t NeededAnswer() { return 42; }
