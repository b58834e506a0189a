// The universal C runtime: makes calls with invalid arguments fail.
//
// By default this runtime ends the process if it is given a bad descriptor, a null path or an
// unknown mode. While a guard exists, such a call on its thread sets errno and returns, and other
// threads keep the host's behaviour. Every runtime call whose arguments come from a caller of the
// library has a guard. Evaluate errno while the guard still exists.
#ifndef KIV_OS_W32_UCRT_PARAMETER_GUARD_H
#define KIV_OS_W32_UCRT_PARAMETER_GUARD_H

#include <cstdint>
#include <cstdlib>

// Declared here, because some headers of this runtime lack it.
extern "C" __declspec(dllimport) _invalid_parameter_handler
    __cdecl _set_thread_local_invalid_parameter_handler(_invalid_parameter_handler handler);

namespace kiv::os {

class ParameterGuard {
 public:
  ParameterGuard() : previous_(_set_thread_local_invalid_parameter_handler(Return)) {}
  ~ParameterGuard() { _set_thread_local_invalid_parameter_handler(previous_); }
  ParameterGuard(const ParameterGuard&) = delete;
  ParameterGuard& operator=(const ParameterGuard&) = delete;

 private:
  static void __cdecl Return(const wchar_t* /*expression*/, const wchar_t* /*function*/,
                             const wchar_t* /*source*/, unsigned /*line*/, uintptr_t /*reserved*/) {
  }

  _invalid_parameter_handler previous_;
};

}  // namespace kiv::os

#endif
