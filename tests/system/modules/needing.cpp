// A module that cannot be loaded without kiv_needed.
#include <cstdint>

extern "C" __declspec(dllimport) uint32_t NeededAnswer();

extern "C" __declspec(dllexport) uint32_t NeedingAnswer() { return NeededAnswer() + 1; }
