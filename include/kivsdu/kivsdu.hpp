// kivsdu for C++20: a thin, optional layer over the C functions.
//
// It adds owners that release what they hold, locks for the standard's guards, statuses as
// std::error_code, and memory resources. Each call is inline and calls one C function, except where
// its comment says more. The headers of the C functions state units, limits and thread safety.
//
// Link kivsdu, and kivsdu_status for the texts of statuses: kivsdu::cpp in CMake, kivsdu-cpp in
// pkg-config.
//
// Examples: examples/guards.cpp, examples/peers.cpp.
#ifndef KIVSDU_KIVSDU_HPP
#define KIVSDU_KIVSDU_HPP

#include "cpp/context.hpp"
#include "cpp/directio.hpp"
#include "cpp/error.hpp"
#include "cpp/files.hpp"
#include "cpp/leases.hpp"
#include "cpp/locks.hpp"
#include "cpp/memory.hpp"
#include "cpp/objects.hpp"
#include "cpp/pipes.hpp"
#include "cpp/segments.hpp"
#include "cpp/threads.hpp"
#include "cpp/version.hpp"
#include "kivsdu.h"

#endif
